// A block of lines on a terminal that is redrawn in place. Pure: every function gives the bytes to
// write. The cursor is hidden while a block stands and rests at the start of the block's last line.
// Nothing of it scrolls away that had room before.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/posix/terminal/render.h"

namespace velmora::platform::terminal {

inline constexpr char kShowCursor[] = "\x1b[?25h";

class Screen {
 public:
  // Replaces the block that stands by `lines`, none of which may be wider, nor all of them higher,
  // than `size`. Empty if that changes nothing.
  [[nodiscard]] std::string Show(const std::vector<std::string>& lines, ScreenSize size);

  // Takes the block away, so that other output can go where it stood.
  [[nodiscard]] std::string Erase();

  // Leaves the block where it is, with the cursor shown below it. The next one is drawn anew.
  [[nodiscard]] std::string Leave();

 private:
  [[nodiscard]] std::string Replace(const std::vector<std::string>& lines, ScreenSize size) const;
  [[nodiscard]] std::size_t RowsTaken(std::size_t lines, ScreenSize size) const;

  std::vector<std::string> shown_;
  ScreenSize size_;
};

}  // namespace velmora::platform::terminal
