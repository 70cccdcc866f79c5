// A block of lines on a terminal, redrawn in place. Does no output: each function returns the bytes
// to write. While a block is shown the cursor is hidden, at the start of the block's last line.
// What fits the terminal never scrolls out of it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/posix/terminal/render.h"

namespace velmora::platform::terminal {

inline constexpr char kShowCursor[] = "\x1b[?25h";

class Screen {
 public:
  // Replaces the current block by `lines`, which must fit `size` in width and in number. Empty if
  // nothing changes.
  [[nodiscard]] std::string Show(const std::vector<std::string>& lines, ScreenSize size);

  // Removes the block, so that other output can take its place.
  [[nodiscard]] std::string Erase();

  // Leaves the block where it is and shows the cursor below it. The next block is a new one.
  [[nodiscard]] std::string Leave();

 private:
  [[nodiscard]] std::string Replace(const std::vector<std::string>& lines, ScreenSize size) const;
  [[nodiscard]] std::size_t RowsTaken(std::size_t lines, ScreenSize size) const;

  std::vector<std::string> shown_;
  ScreenSize size_;
};

}  // namespace velmora::platform::terminal
