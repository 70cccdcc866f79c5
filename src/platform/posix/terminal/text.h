// Text measured in the cells that it takes on a terminal. Pure functions; any thread may call them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velmora::platform::terminal {

// The cells that a line of UTF-8 takes. Every character outside ASCII counts as two, except
// half-width katakana: terminals disagree about Greek, Cyrillic and symbols, and a line narrower
// than expected is harmless, but a wider one would break the picture.
[[nodiscard]] std::size_t CellsOf(std::string_view utf8);

// The longest beginning of `utf8` that takes at most `cells` cells.
[[nodiscard]] std::string CutToCells(std::string_view utf8, std::size_t cells);

// The lines of `utf8`, wrapped so that none takes more than `cells` cells. A character wider than
// that is left out.
[[nodiscard]] std::vector<std::string> WrapToCells(std::string_view utf8, std::size_t cells);

// The parts of `text` between its line feeds; at least one. For code page 932 and UTF-8.
[[nodiscard]] std::vector<std::string_view> SplitLines(std::string_view text);

}  // namespace velmora::platform::terminal
