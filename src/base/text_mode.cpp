#include "base/text_mode.h"

namespace velmora {

std::string EncodeTextMode(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() + 2);
  for (std::size_t lineFeed = text.find('\n'); lineFeed != std::string_view::npos;
       lineFeed = text.find('\n')) {
    bytes += text.substr(0, lineFeed);
    bytes += "\r\n";
    text.remove_prefix(lineFeed + 1);
  }
  bytes += text;
  return bytes;
}

std::string_view UpToEndOfText(std::string_view bytes) {
  constexpr char kEndOfText = 0x1A;
  return bytes.substr(0, bytes.find(kEndOfText));
}

std::string_view TakeTextLine(std::string_view& rest) {
  const std::size_t lineFeed = rest.find('\n');
  std::string_view line = rest.substr(0, lineFeed);
  if (lineFeed == std::string_view::npos) {
    rest = {};
    return line;
  }
  rest.remove_prefix(lineFeed + 1);
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

}  // namespace velmora
