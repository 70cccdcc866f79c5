#include "platform/posix/terminal/screen.h"

#include <algorithm>

#include "base/text.h"
#include "platform/posix/terminal/text.h"

namespace velmora::platform::terminal {
namespace {

constexpr char kHideCursor[] = "\x1b[?25l";
constexpr char kClearLine[] = "\x1b[K";
constexpr char kNextLine[] = "\r\n";

std::string CursorUp(std::size_t rows) {
  return rows == 0 ? "\r" : FormatText("\r\x1b[%zuA", rows);
}

// Without the sequences that dim text, which take no cells.
std::string WithoutStyle(std::string line) {
  for (std::size_t at = 0; (at = line.find('\x1b')) != std::string::npos;) {
    line.erase(at, line.find('m', at) + 1 - at);
  }
  return line;
}

}  // namespace

std::string Screen::Show(const std::vector<std::string>& lines, ScreenSize size) {
  if (lines == shown_ && size == size_) return {};
  std::string bytes = kHideCursor + Replace(lines, size);
  shown_ = lines;
  size_ = size;
  return bytes;
}

std::string Screen::Erase() {
  if (shown_.empty()) return {};
  std::string bytes = Replace({""}, size_) + kShowCursor;
  shown_.clear();
  return bytes;
}

std::string Screen::Leave() {
  if (shown_.empty()) return {};
  shown_.clear();
  return std::string(kNextLine) + kShowCursor;
}

// Erases line by line. Terminals with a history, such as tmux, add the whole screen to it when that
// is cleared from the first row. Each line is erased before it is written: after a line that fills
// the width of the terminal some terminals would erase its last character.
std::string Screen::Replace(const std::vector<std::string>& lines, ScreenSize size) const {
  std::string bytes = "";
  if (!shown_.empty()) bytes += CursorUp(RowsTaken(shown_.size() - 1, size));
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) bytes += kNextLine;
    bytes += kClearLine + lines[i];
  }
  const std::size_t rowsBefore = std::min(RowsTaken(shown_.size(), size), size.rows);
  const std::size_t left = rowsBefore - std::min(rowsBefore, lines.size());
  for (std::size_t i = 0; i < left; ++i) bytes += std::string(kNextLine) + kClearLine;
  return bytes + CursorUp(left);
}

// Most terminals wrap lines that have become too wide, and the cursor stays with its line. On a
// terminal that cuts them instead, this counts some rows too many.
std::size_t Screen::RowsTaken(std::size_t lines, ScreenSize size) const {
  std::size_t rows = 0;
  for (std::size_t i = 0; i < lines; ++i) {
    rows += WrapToCells(WithoutStyle(shown_[i]), size.columns).size();
  }
  return rows;
}

}  // namespace velmora::platform::terminal
