#include "publish/common/disk_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "platform/utf8.h"
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

// Of a character below U+10000.
std::string InUtf8(char32_t character) {
  const auto byte = [character](unsigned mark, unsigned shift) {
    return static_cast<char>(mark | (character >> shift & 0x3FU));
  };
  if (character < 0x80) return {static_cast<char>(character)};
  if (character < 0x800) return {byte(0xC0, 6), byte(0x80, 0)};
  return {byte(0xE0, 12), byte(0x80, 6), byte(0x80, 0)};
}

// Signs that other systems write in place of those of code page 932.
char32_t Similar(char32_t character) {
  static constexpr std::array<std::pair<char32_t, char32_t>, 9> kSimilar = {{{0xA2, 0xFFE0},
                                                                             {0xA3, 0xFFE1},
                                                                             {0xA5, 0xFFE5},
                                                                             {0xAC, 0xFFE2},
                                                                             {0x2014, 0x2015},
                                                                             {0x2016, 0x2225},
                                                                             {0x203E, 0xFFE3},
                                                                             {0x2212, 0xFF0D},
                                                                             {0x301C, 0xFF5E}}};
  const auto* const found =
      std::find_if(kSimilar.begin(), kSimilar.end(),
                   [character](const auto& pair) { return pair.first == character; });
  return found == kSimilar.end() ? U'_' : found->second;
}

// The letter of which `kana` is the first part and `mark`, a sound mark of its own, the second, as
// macOS writes them; 0 if there is none.
char32_t Joined(char32_t kana, char32_t mark) {
  constexpr char32_t kVoiced = 0x3099;
  constexpr char32_t kHalfVoiced = 0x309A;
  constexpr char32_t kToKatakana = 0x60;
  if (kana == 0x30A6 && mark == kVoiced) return 0x30F4;  // vu
  const char32_t hiragana = kana >= 0x30A1 ? kana - kToKatakana : kana;
  const bool isOfH = hiragana >= 0x306F && hiragana <= 0x307B && hiragana % 3 == 0;
  if (mark == kHalfVoiced) return isOfH ? kana + 2 : 0;
  // Up to "chi" the odd ones, after the small "tsu" the even ones.
  const bool isOfKToT = (hiragana >= 0x304B && hiragana <= 0x3061 && hiragana % 2 == 1) ||
                        (hiragana >= 0x3064 && hiragana <= 0x3068 && hiragana % 2 == 0);
  return mark == kVoiced && (isOfH || isOfKToT) ? kana + 1 : 0;
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

std::optional<CodePageName> InCodePage(std::string_view name) {
  CodePageName result;
  char32_t before = 0;
  std::size_t start = 0;  // of the character before, in the result
  while (!name.empty()) {
    const std::string_view rest = name;
    const std::optional<char32_t> character = TakeCharacter(name);
    if (!character) return std::nullopt;
    const std::string_view utf8 = rest.substr(0, rest.size() - name.size());
    std::optional<std::string> bytes =
        *character < 0x80 ? std::string(utf8) : platform::FromUtf8(utf8);
    if (!bytes) {
      result.missing += *character;
      const char32_t joined = Joined(before, *character);
      if (joined != 0) result.text.resize(start);
      bytes = platform::FromUtf8(InUtf8(joined != 0 ? joined : Similar(*character)));
    }
    start = result.text.size();
    result.text += bytes.value_or("_");
    before = *character;
  }
  return result;
}

std::string ListedName(const std::string& name, NameEncoding encoding) {
  if (encoding == NameEncoding::kBytes && !platform::AreNamesUnicode()) return name;
  const std::optional<CodePageName> converted = InCodePage(name);
  return converted && converted->missing.empty() ? converted->text : name;
}

std::string ShownPath(const std::filesystem::path& path) {
  return ShownPath(std::string_view(TextOf(path)));
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
