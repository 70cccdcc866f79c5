#include "process/command_line.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "base/ascii.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"
#include "settings/session_log.h"

namespace velmora {

std::string ArgumentTail;

namespace {

// Steps from option letter to option letter.
class OptionScan {
 public:
  explicit OptionScan(const std::string& line) : line_(line) {}

  // The next option letter, in upper case; empty at the end of the line.
  std::optional<char> NextLetter() {
    const std::size_t slash = line_.find('/', position_);
    if (slash == std::string::npos || slash + 1 == line_.size()) return std::nullopt;
    position_ = slash + 2;
    return UpperCase(line_[slash + 1]);
  }

  // The value of the current option; empty if it is too long.
  std::optional<std::string> ReadOptionValue() {
    const std::size_t start = std::min(line_.find_first_not_of(' ', position_), line_.size());
    SkipOptionValue();
    const std::string value = line_.substr(start, position_ - start);
    if (value.size() <= kMaxOptionValue) return value;
    LogMessage("Option refused, its value is too long : %s\n", value.c_str());
    return std::nullopt;
  }

  void SkipOptionValue() {
    const std::size_t start = std::min(line_.find_first_not_of(' ', position_), line_.size());
    position_ = std::min(line_.find(' ', start), line_.size());
  }

  // The end of the current option, including its value if that was read or skipped.
  std::size_t Position() const { return position_; }

  // What follows the current letter and one separator.
  std::string Tail() const { return line_.substr(std::min(position_ + 1, line_.size())); }

 private:
  const std::string& line_;
  std::size_t position_ = 0;
};

// The letters that have a value in each scan. The other scan looks for options in these values too.
constexpr std::string_view kSettingsPathScan = "P";
constexpr std::string_view kOptionsScan = "BDHIL";

struct OptionSpan {
  std::size_t slash;
  std::size_t end;
};

void AddOptionSpans(const std::string& line, std::string_view lettersWithValue,
                    std::vector<OptionSpan>& spans) {
  OptionScan scan(line);
  while (const auto letter = scan.NextLetter()) {
    const std::size_t slash = scan.Position() - 2;
    if (lettersWithValue.find(*letter) != std::string_view::npos) scan.SkipOptionValue();
    spans.push_back({slash, scan.Position()});
  }
}

void Assign(std::string& setting, const std::optional<std::string>& value) {
  if (value) setting = *value;
}

void SetServer(const std::optional<std::string>& url) {
  if (!url) return;
  const auto parts = CrackServerUrl(*url);
  if (!parts) return;
  Settings.DataPath = parts->path;
  Settings.ServerHost = parts->host;
}

void SetLaunchId(const std::optional<std::string>& id) {
  if (!id) return;
  Settings.LaunchId = *id;
  LogMessage("ID = %s\n", id->c_str());
}

}  // namespace

void ScanSettingsPath(const std::string& commandLine) {
  OptionScan scan(commandLine);
  while (const auto letter = scan.NextLetter()) {
    if (*letter == 'P') Assign(Settings.SettingsPath, scan.ReadOptionValue());
  }
}

ScanResult ScanOptions(const std::string& commandLine) {
  ArgumentTail = commandLine;
  OptionScan scan(commandLine);
  while (const auto letter = scan.NextLetter()) {
    switch (*letter) {
      case 'B':
        SetServer(scan.ReadOptionValue());
        break;
      case 'C':
        LogMessage("Delete temporary files to close.\n");
        DeleteTemporaryCopy();
        return ScanResult::kEndProcess;
      case 'D':
        Assign(Settings.DataFile, scan.ReadOptionValue());
        break;
      case 'H':
        Assign(Settings.InformationUrl, scan.ReadOptionValue());
        break;
      case 'I':
        SetLaunchId(scan.ReadOptionValue());
        break;
      case 'L':
        static_cast<void>(scan.ReadOptionValue());
        break;
      case 'R':
        LogMessage("Delete temporary files to reboot.\n");
        DeleteTemporaryCopy();
        ArgumentTail = scan.Tail();
        break;
      default:
        break;
    }
  }
  return ScanResult::kContinue;
}

std::string WholeOptions(const std::string& line, std::size_t limit) {
  std::vector<OptionSpan> spans;
  AddOptionSpans(line, kSettingsPathScan, spans);
  AddOptionSpans(line, kOptionsScan, spans);
  std::size_t length = 0;
  for (const OptionSpan& last : spans) {
    if (last.end > limit) continue;
    const bool cutsNone = std::none_of(spans.begin(), spans.end(), [&last](const OptionSpan& span) {
      return span.slash < last.end && last.end < span.end;
    });
    if (cutsNone) length = std::max(length, last.end);
  }
  return line.substr(0, length);
}

void DeleteTemporaryCopy() {
  constexpr std::uint32_t kLongestPause = 50;
  if (!platform::FileExists(kTemporaryCopy)) return;
  // Another process may delete the copy first.
  std::uint32_t pause = 1;
  while (!platform::RemoveFile(kTemporaryCopy) && platform::FileExists(kTemporaryCopy)) {
    platform::Pause(pause);
    pause = std::min(pause * 2, kLongestPause);
  }
  LogMessage("Deleted temporary files.\n");
}

}  // namespace velmora
