#include "platform/posix/terminal/text.h"

#include <algorithm>

namespace velmora::platform::terminal {
namespace {

struct Glyph {
  std::size_t bytes;
  std::size_t cells;
};

std::size_t BytesByLead(char c) {
  const auto lead = static_cast<unsigned char>(c);
  if (lead < 0x80) return 1;
  if (lead < 0xE0) return 2;
  return lead < 0xF0 ? 3 : 4;
}

bool IsHalfWidthKatakana(std::string_view glyph) {
  return glyph >= "\xEF\xBD\xA1" && glyph <= "\xEF\xBE\x9F";
}

Glyph GlyphAt(std::string_view utf8, std::size_t at) {
  const std::size_t bytes = std::min(BytesByLead(utf8[at]), utf8.size() - at);
  const bool isNarrow = bytes == 1 || IsHalfWidthKatakana(utf8.substr(at, bytes));
  return {bytes, isNarrow ? std::size_t{1} : std::size_t{2}};
}

}  // namespace

std::size_t CellsOf(std::string_view utf8) {
  std::size_t cells = 0;
  for (std::size_t at = 0; at < utf8.size();) {
    const Glyph glyph = GlyphAt(utf8, at);
    cells += glyph.cells;
    at += glyph.bytes;
  }
  return cells;
}

std::string CutToCells(std::string_view utf8, std::size_t cells) {
  std::size_t end = 0;
  while (end < utf8.size()) {
    const Glyph glyph = GlyphAt(utf8, end);
    if (glyph.cells > cells) break;
    cells -= glyph.cells;
    end += glyph.bytes;
  }
  return std::string(utf8.substr(0, end));
}

std::vector<std::string> WrapToCells(std::string_view utf8, std::size_t cells) {
  std::vector<std::string> wrapped;
  for (std::string_view line : SplitLines(utf8)) {
    do {
      wrapped.push_back(CutToCells(line, cells));
      const std::size_t skipped =
          wrapped.back().empty() && !line.empty() ? GlyphAt(line, 0).bytes : 0;
      line.remove_prefix(wrapped.back().size() + skipped);
    } while (!line.empty());
  }
  return wrapped;
}

std::vector<std::string_view> SplitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (true) {
    const std::size_t end = text.find('\n');
    lines.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return lines;
    text.remove_prefix(end + 1);
  }
}

}  // namespace velmora::platform::terminal
