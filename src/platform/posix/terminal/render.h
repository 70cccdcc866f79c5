// The dialog as lines of a terminal. Pure: a model goes in, lines of UTF-8 come out, none wider
// than the terminal. A dimmed button brings its own escape sequences, which take no cells.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/posix/terminal/figures.h"
#include "platform/posix/terminal/model.h"

namespace velmora::platform::terminal {

struct ScreenSize {
  std::size_t columns = 80;
  std::size_t rows = 24;

  bool operator==(const ScreenSize&) const = default;
};

// Title, the page's address if there is one, two lines of status, file bar, overall bar, and as
// many lines of buttons as they need.
[[nodiscard]] std::vector<std::string> RenderBlock(const DialogModel& model, const Figures& figures,
                                                   std::size_t columns);

[[nodiscard]] std::vector<std::string> RenderBox(const BoxText& box, std::size_t columns);

// While a cancel waits, below the block.
inline constexpr char kCancelNotice[] =
    "Cancelling when this file is done.\nCtrl-C again closes without waiting.";
[[nodiscard]] std::vector<std::string> RenderCancelNotice(std::size_t columns);

// A line more than the terminal has rows would scroll it: the last lines of the block go first,
// then the box's rule, then the end of its text. Its last line, which says what it waits for,
// stays.
[[nodiscard]] std::vector<std::string> Arrange(std::vector<std::string> block,
                                               std::vector<std::string> box, std::size_t rows);

}  // namespace velmora::platform::terminal
