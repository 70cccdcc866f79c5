// Text on its way to a terminal, measured in the cells that it takes there. Pure; safe from any
// thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velmora::platform::terminal {

// The cells that a line of UTF-8 takes. All characters outside of ASCII count two except half-width
// katakana: terminals disagree about Greek, Cyrillic and signs, and a line that comes out too
// narrow does no harm where one that is too wide would break the picture.
[[nodiscard]] std::size_t CellsOf(std::string_view utf8);

// The longest beginning of `utf8` that takes at most `cells` cells.
[[nodiscard]] std::string CutToCells(std::string_view utf8, std::size_t cells);

// The lines of `utf8`, the longer ones broken so that none takes more than `cells` cells. A
// character that is wider than `cells` is left out.
[[nodiscard]] std::vector<std::string> WrapToCells(std::string_view utf8, std::size_t cells);

// The parts of `text` between its line feeds; at least one. Works on code page 932 and UTF-8
// alike.
[[nodiscard]] std::vector<std::string_view> SplitLines(std::string_view text);

}  // namespace velmora::platform::terminal
