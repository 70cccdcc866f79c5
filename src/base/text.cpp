#include "base/text.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace velmora {

std::int32_t ToNumber(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && IsWhiteSpace(text[i])) ++i;
  const bool negative = i < text.size() && text[i] == '-';
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;

  constexpr std::int64_t kBeyond32Bits = std::int64_t{1} << 32;
  std::int64_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    if (value < kBeyond32Bits) value = value * 10 + (text[i] - '0');
  }
  if (negative) value = -value;

  using Limits = std::numeric_limits<std::int32_t>;
  if (value > Limits::max()) return Limits::max();
  if (value < Limits::min()) return Limits::min();
  return static_cast<std::int32_t>(value);
}

std::size_t CharacterLength(std::string_view text, std::size_t position) {
  const bool isDouble =
      IsLeadByte(text[position]) && position + 1 < text.size() && IsTrailByte(text[position + 1]);
  return isDouble ? 2 : 1;
}

std::string_view CutText(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  std::size_t length = 0;
  for (const std::string_view character : Characters(text)) {
    if (length + character.size() > limit) break;
    length += character.size();
  }
  return text.substr(0, length);
}

std::string FormatTextV(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  char buffer[512];  // most texts fit and are formatted only once
  const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
  std::string text(buffer, static_cast<std::size_t>(std::clamp(length, 0, int{sizeof buffer} - 1)));
  if (length >= int{sizeof buffer}) {
    text.resize(static_cast<std::size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

std::string FormatText(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = FormatTextV(format, arguments);
  va_end(arguments);
  return text;
}

}  // namespace velmora
