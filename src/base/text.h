// Byte-string helpers for every layer. All text in the program is 8-bit text in the
// platform's ANSI code page, which for this product is code page 932 (Shift-JIS): a character is
// one byte, or a lead byte followed by a trail byte, and the trail byte may be 0x5C, the backslash.
//
// Everything here is pure and safe to call from any thread.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace velmora {

// Reads a leading decimal number as the C function atol does: white space, an optional sign,
// digits; 0 if there is no digit; anything after the digits is ignored. A value beyond 32 bits
// becomes the nearest 32-bit number.
[[nodiscard]] std::int32_t ToNumber(std::string_view text);

// White space as the C locale's isspace sees it: space, \t, \n, \v, \f, \r.
inline constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
[[nodiscard]] constexpr bool IsWhiteSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// True for a byte that starts a double-byte character of code page 932.
[[nodiscard]] constexpr bool IsLeadByte(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
}

// True for a byte that can be the second of a double-byte character of code page 932.
[[nodiscard]] constexpr bool IsTrailByte(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x40 && byte <= 0xFC && byte != 0x7F;
}

// Length in bytes of the character at `position`, 1 or 2. A lead byte without a trail byte after
// it counts as a character of its own. `position` must be inside the text.
[[nodiscard]] std::size_t CharacterLength(std::string_view text, std::size_t position);

// The characters of `text`, for a loop: `for (const std::string_view character :
// Characters(text))`. A character's position is `character.data() - text.data()`.
class Characters {
 public:
  explicit Characters(std::string_view text) : text_(text) {}

  class Iterator {
   public:
    explicit Iterator(std::string_view rest) : rest_(rest) {}
    [[nodiscard]] std::string_view operator*() const {
      return rest_.substr(0, CharacterLength(rest_, 0));
    }
    Iterator& operator++() {
      rest_.remove_prefix(CharacterLength(rest_, 0));
      return *this;
    }
    [[nodiscard]] bool operator!=(const Iterator& other) const {
      return rest_.size() != other.rest_.size();
    }

   private:
    std::string_view rest_;
  };

  [[nodiscard]] Iterator begin() const { return Iterator(text_); }
  [[nodiscard]] Iterator end() const { return Iterator({}); }

 private:
  std::string_view text_;
};

// The longest prefix of `text` that has at most `limit` bytes and ends between two characters.
[[nodiscard]] std::string_view CutText(std::string_view text, std::size_t limit);

// Formats as printf does, to any length.
[[nodiscard]] std::string FormatText(const char* format, ...) __attribute__((format(printf, 1, 2)));
[[nodiscard]] std::string FormatTextV(const char* format, std::va_list arguments)
    __attribute__((format(printf, 1, 0)));

}  // namespace velmora
