#include "platform/posix/dialog/details.h"

#include <array>
#include <cstddef>

#include "base/text.h"

namespace velmora::platform::dialog {
namespace {

std::string FormatBytes(std::int64_t bytes) {
  if (bytes < 1024) return FormatText("%lld B", static_cast<long long>(bytes));
  constexpr std::array<const char*, 3> kUnits = {"KiB", "MiB", "GiB"};
  double amount = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  while (amount >= 1024 && unit + 1 < kUnits.size()) {
    amount /= 1024;
    ++unit;
  }
  return FormatText("%.1f %s", amount, kUnits[unit]);
}

std::string FormatTimeLeft(std::int64_t seconds) {
  const long long all = seconds;
  if (all < 3600) return FormatText("%lld:%02lld left", all / 60, all % 60);
  return FormatText("%lld:%02lld:%02lld left", all / 3600, all / 60 % 60, all % 60);
}

}  // namespace

Details FileDetails(const Bar& bar, const Figures& figures) {
  Details details = {FormatBytes(bar.position) + " / " + FormatBytes(bar.highest)};
  if (figures.bytesPerSecond) details.push_back(FormatBytes(*figures.bytesPerSecond) + "/s");
  if (figures.fileSecondsLeft) details.push_back(FormatTimeLeft(*figures.fileSecondsLeft));
  return details;
}

Details OverallDetails(const Bar& bar, const Figures& figures) {
  Details details = {FormatText("%d / %d", bar.position, bar.highest)};
  if (figures.secondsLeft) details.push_back(FormatTimeLeft(*figures.secondsLeft));
  return details;
}

}  // namespace velmora::platform::dialog
