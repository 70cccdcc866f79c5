// Any bytes as a command line, through both scans, in a folder that holds a temporary copy: a naive
// reading of the options gives the same settings, and the copy goes for /C and /R alone.
#include <filesystem>

#include "harness.h"
#include "process/command_line.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"

namespace velmora::fuzz {
namespace {

struct Option {
  char letter = 0;
  std::string value;
  std::size_t end = 0;  // behind the letter and its value
};

// Options in their order; those of `withValue` take one, up to the next blank.
std::vector<Option> OptionsOf(const std::string& line, std::string_view withValue) {
  std::vector<Option> options;
  for (std::size_t i = 0; i + 1 < line.size(); ++i) {
    if (line[i] != '/') continue;
    const char c = line[++i];
    Option option{c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c, "", i + 1};
    if (withValue.find(option.letter) != std::string_view::npos) {
      while (option.end < line.size() && line[option.end] == ' ') ++option.end;
      while (option.end < line.size() && line[option.end] != ' ') {
        option.value += line[option.end++];
      }
      i = option.end - 1;
    }
    options.push_back(option);
  }
  return options;
}

void CheckSettingsPath(const std::string& line) {
  std::string expected = "before";
  for (const Option& option : OptionsOf(line, "P")) {
    if (option.letter == 'P' && option.value.size() <= 259) expected = option.value;
  }
  Settings.SettingsPath = "before";
  ScanSettingsPath(line);
  Require(Settings.SettingsPath == expected, "the last /P counts", line);
}

void Apply(const Option& option, const std::string& line, PatcherSettings& settings,
           std::string& tail) {
  if (option.letter == 'R') tail = line.substr(std::min(option.end + 1, line.size()));
  if (option.value.size() > 259) return;
  if (option.letter == 'D') settings.DataFile = option.value;
  if (option.letter == 'H') settings.InformationUrl = option.value;
  if (option.letter == 'I') settings.LaunchId = option.value;
  if (option.letter != 'B') return;
  if (const auto url = CrackServerUrl(option.value)) {
    settings.ServerHost = url->host;
    settings.DataPath = url->path;
  }
}

void CheckOptions(const std::string& line) {
  PatcherSettings expected;
  std::string tail = line;
  bool deletes = false;
  bool ends = false;
  for (const Option& option : OptionsOf(line, "BDHIL")) {
    deletes = deletes || option.letter == 'C' || option.letter == 'R';
    ends = option.letter == 'C';
    if (ends) break;
    Apply(option, line, expected, tail);
  }
  WriteFile(kTemporaryCopy, "copy");
  Settings = PatcherSettings();
  const bool hasEnded = ScanOptions(line) == ScanResult::kEndProcess;
  Require(hasEnded == ends, "/C ends the process, and nothing else does", line);
  Require(std::filesystem::exists(kTemporaryCopy) != deletes,
          "the copy goes for /C and /R, and for nothing else", line);
  Require(ArgumentTail == tail, "what is handed on", ArgumentTail);
  Require(Settings.DataFile == expected.DataFile && Settings.LaunchId == expected.LaunchId &&
              Settings.InformationUrl == expected.InformationUrl &&
              Settings.ServerHost == expected.ServerHost && Settings.DataPath == expected.DataPath,
          "the options' values", line);
}

}  // namespace
}  // namespace velmora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora::fuzz;
  EnterEmptyFolder();
  const std::string line(TextOf(data, size));
  CheckSettingsPath(line);
  CheckOptions(line);
  return 0;
}
