#include "platform/utf8.h"

#include <windows.h>

#include "base/ascii.h"
#include "base/text.h"

namespace velmora::platform {
namespace {

constexpr UINT kCodePage = 932;

std::string Convert(std::string_view character) {
  const char first = character[0];
  if (first == '\n') return "\n";
  if (first == '\t') return " ";
  // Windows gives some single bytes characters for private use. Half-width katakana are the only
  // ones that Japanese texts have.
  const bool isKatakana = first >= '\xA1' && first <= '\xDF';
  if (IsControl(first) || (character.size() == 1 && !IsAscii(first) && !isKatakana)) return "?";
  wchar_t wide[2];
  const int units = MultiByteToWideChar(kCodePage, MB_ERR_INVALID_CHARS, character.data(),
                                        static_cast<int>(character.size()), wide, 2);
  if (units == 0) return "?";
  char utf8[8];
  const int bytes =
      WideCharToMultiByte(CP_UTF8, 0, wide, units, utf8, sizeof utf8, nullptr, nullptr);
  return std::string(utf8, static_cast<std::size_t>(bytes));
}

}  // namespace

std::string ToUtf8(std::string_view text) {
  std::string utf8;
  for (const std::string_view character : Characters(text)) utf8 += Convert(character);
  return utf8;
}

}  // namespace velmora::platform
