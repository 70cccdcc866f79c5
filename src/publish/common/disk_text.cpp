#include "publish/common/disk_text.h"

#include <algorithm>
#include <cstddef>

#include "publish/common/shown_text.h"

namespace velmora::publish {
namespace {

// The length of a character in UTF-8 by its first byte; 0 if none begins so.
std::size_t LengthByFirst(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

std::string ShownElement(std::string_view element) {
  if (!IsUtf8(element)) return ShownText(element);
  std::string shown;
  while (!element.empty()) {
    const std::string_view rest = element;
    const char32_t character = *TakeCharacter(element);
    const bool isControl = character < 0x20 || (character >= 0x7F && character < 0xA0);
    shown += isControl ? "?" : rest.substr(0, rest.size() - element.size());
  }
  return shown;
}

}  // namespace

std::optional<char32_t> TakeCharacter(std::string_view& text) {
  const auto first = static_cast<unsigned char>(text.front());
  const std::size_t length = LengthByFirst(first);
  if (length == 0 || length > text.size()) return std::nullopt;
  char32_t character = length == 1 ? first : first & (0x7FU >> length);
  for (const char c : text.substr(1, length - 1)) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0U) != 0x80) return std::nullopt;
    character = character << 6U | (byte & 0x3FU);
  }
  const bool isTooLong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
  const bool isSurrogate = character >= 0xD800 && character < 0xE000;
  if (isTooLong || isSurrogate || character > 0x10FFFF) return std::nullopt;
  text.remove_prefix(length);
  return character;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    if (!TakeCharacter(text)) return false;
  }
  return true;
}

std::string ShownPath(std::string_view path) {
  std::string shown;
  while (true) {
    const std::size_t length = std::min(path.find('/'), path.size());
    shown += ShownElement(path.substr(0, length));
    if (length == path.size()) return shown;
    shown += '/';
    path.remove_prefix(length + 1);
  }
}

}  // namespace velmora::publish
