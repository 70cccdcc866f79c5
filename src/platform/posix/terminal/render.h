// The dialog as lines for a terminal. Pure functions from a model to lines of UTF-8, none wider
// than the terminal. A dimmed button includes escape sequences, which take no cells.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/posix/dialog/figures.h"
#include "platform/posix/dialog/model.h"

namespace velmora::platform::terminal {

using dialog::BoxText;
using dialog::DialogModel;
using dialog::Figures;

struct ScreenSize {
  std::size_t columns = 80;
  std::size_t rows = 24;

  bool operator==(const ScreenSize&) const = default;
};

// The title, the page's address if there is one, two lines of status, the file bar, the overall
// bar, and as many lines as the buttons need.
[[nodiscard]] std::vector<std::string> RenderBlock(const DialogModel& model, const Figures& figures,
                                                   std::size_t columns);

[[nodiscard]] std::vector<std::string> RenderBox(const BoxText& box, std::size_t columns);

// Shown below the block until the cancelled run has ended.
inline constexpr char kCancelNotice[] =
    "Cancelling when this file is done.\nCtrl-C again closes without waiting.";
[[nodiscard]] std::vector<std::string> RenderCancelNotice(std::size_t columns);

// The block with the box below it, in at most `rows` lines: one more would scroll the terminal. The
// last lines of the block are dropped first, then the box's rule, then the end of its text, but
// never its last line, which says what it waits for.
[[nodiscard]] std::vector<std::string> Arrange(std::vector<std::string> block,
                                               std::vector<std::string> box, std::size_t rows);

}  // namespace velmora::platform::terminal
