#include "platform/utf8.h"

#include <windows.h>

#include "base/ascii.h"
#include "base/text.h"
#include "platform/win32/utf16.h"

namespace velmora::platform {
namespace {

std::string ConvertCharacter(std::string_view character) {
  const char first = character[0];
  if (first == '\n') return "\n";
  if (first == '\t') return " ";
  // Windows maps some single bytes to characters for private use. Of the bytes above 0x7F, only
  // half-width katakana occur alone in Japanese texts.
  const bool isKatakana = first >= '\xA1' && first <= '\xDF';
  if (IsControl(first) || (character.size() == 1 && !IsAscii(first) && !isKatakana)) return "?";
  wchar_t wide[2];
  const int units = MultiByteToWideChar(kTextCodePage, MB_ERR_INVALID_CHARS, character.data(),
                                        static_cast<int>(character.size()), wide, 2);
  if (units == 0) return "?";
  return FromUtf16({wide, static_cast<std::size_t>(units)}, CP_UTF8);
}

}  // namespace

std::string ToUtf8(std::string_view text) {
  std::string utf8;
  for (const std::string_view character : Characters(text)) utf8 += ConvertCharacter(character);
  return utf8;
}

std::optional<std::string> FromUtf8(std::string_view utf8) {
  std::string text = FromUtf16(ToUtf16(utf8, CP_UTF8));
  if (ToUtf8(text) != utf8) return std::nullopt;
  return text;
}

}  // namespace velmora::platform
