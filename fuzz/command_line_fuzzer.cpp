// Any bytes as a command line, through both scans, in a folder that holds a temporary copy: by a
// naive reading of the options, the last /P counts, and the copy goes for /C and /R alone.
#include "harness.h"
#include "process/command_line.h"
#include "settings/patcher_settings.h"

namespace velmora::fuzz {
namespace {

struct Option {
  char letter = 0;
  std::string value;
  std::size_t end = 0;  // after the letter and its value
};

// Options in their order; those of `withValue` take one, up to the next space.
std::vector<Option> OptionsOf(const std::string& line, std::string_view withValue) {
  std::vector<Option> options;
  for (std::size_t i = 0; i + 1 < line.size(); ++i) {
    if (line[i] != '/') continue;
    const char c = line[++i];
    Option option{c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c, "", i + 1};
    if (withValue.find(option.letter) != std::string_view::npos) {
      const std::size_t start = std::min(line.find_first_not_of(' ', i + 1), line.size());
      option.end = std::min(line.find(' ', start), line.size());
      option.value = line.substr(start, option.end - start);
      i = option.end - 1;
    }
    options.push_back(option);
  }
  return options;
}

}  // namespace

void CheckInput(std::string_view input) {
  EnterEmptyFolder();
  const std::string line(input);
  std::string path = "before";
  for (const Option& option : OptionsOf(line, "P")) {
    if (option.letter == 'P' && option.value.size() <= 259) path = option.value;
  }
  Settings.SettingsPath = "before";
  ScanSettingsPath(line);
  Require(Settings.SettingsPath == path, "the last /P counts", line);

  std::string tail = line;
  bool deletes = false;
  bool ends = false;
  for (const Option& option : OptionsOf(line, "BDHIL")) {
    deletes = deletes || option.letter == 'C' || option.letter == 'R';
    ends = option.letter == 'C';
    if (ends) break;
    if (option.letter == 'R') tail = line.substr(std::min(option.end + 1, line.size()));
  }
  WriteFile(kTemporaryCopy, "copy");
  Settings = PatcherSettings();
  Require((ScanOptions(line) == ScanResult::kEndProcess) == ends, "/C alone ends it", line);
  Require(ReadFile(kTemporaryCopy).has_value() != deletes, "the copy goes for /C and /R", line);
  Require(ArgumentTail == tail, "what is handed on", ArgumentTail);
}

}  // namespace velmora::fuzz
