#include "platform/posix/terminal_screen.h"

#include "base/text.h"

namespace velmora::platform::terminal {
namespace {

constexpr char kHideCursor[] = "\x1b[?25l";
constexpr char kClearBelow[] = "\x1b[J";
constexpr char kClearScreen[] = "\x1b[H\x1b[2J";

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) text += "\r\n";
    text += lines[i];
  }
  return text;
}

}  // namespace

std::string Screen::Show(const std::vector<std::string>& lines, ScreenSize size) {
  if (lines == shown_ && size == size_) return {};
  // Cleared before the lines are written: behind a line that fills the terminal's width some
  // terminals would erase its last character.
  std::string bytes = kHideCursor + BackToStart(size) + kClearBelow + Joined(lines);
  shown_ = lines;
  size_ = size;
  return bytes;
}

std::string Screen::Erase() {
  if (shown_.empty()) return {};
  std::string bytes = BackToStart(size_) + kClearBelow + kShowCursor;
  shown_.clear();
  return bytes;
}

std::string Screen::Leave() {
  if (shown_.empty()) return {};
  shown_.clear();
  return std::string("\r\n") + kShowCursor;
}

// After a change of width nobody knows how many rows the old lines take now: some terminals break
// lines anew and some don't.
std::string Screen::BackToStart(ScreenSize size) const {
  if (shown_.empty()) return {};
  if (size.columns != size_.columns || size.rows < shown_.size()) return kClearScreen;
  if (shown_.size() == 1) return "\r";
  return FormatText("\r\x1b[%zuA", shown_.size() - 1);
}

}  // namespace velmora::platform::terminal
