// Characters of ASCII, whatever the locale says. Other bytes are none of its letters, digits or
// control characters, and neither is the trail byte of a double-byte character: texts that may hold
// those are looked at character by character (`Characters` in base/text.h). Pure; safe from any
// thread.
#pragma once

#include <algorithm>
#include <string_view>

namespace velmora {

[[nodiscard]] constexpr bool IsAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

[[nodiscard]] constexpr bool IsControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

// Windows takes both for the end of a folder's name.
[[nodiscard]] constexpr bool IsSeparator(char c) { return c == '\\' || c == '/'; }

[[nodiscard]] constexpr char LowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

[[nodiscard]] constexpr char UpperCase(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

[[nodiscard]] inline bool EqualWithoutCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char left, char right) { return LowerCase(left) == LowerCase(right); });
}

inline constexpr char kHexDigits[] = "0123456789ABCDEF";

// `text` without any of `characters` at its ends.
[[nodiscard]] constexpr std::string_view Trimmed(std::string_view text,
                                                 std::string_view characters) {
  const std::size_t first = text.find_first_not_of(characters);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(characters) + 1 - first);
}

// Whether a connection can be made to `host`, a name or an address without its port.
[[nodiscard]] inline bool IsHost(std::string_view host) {
  return !host.empty() && host.find_first_of(" /\\?#@") == std::string_view::npos &&
         std::none_of(host.begin(), host.end(), IsControl);
}

// `text` without the byte order mark that editors put in front of UTF-8.
[[nodiscard]] constexpr std::string_view WithoutByteOrderMark(std::string_view text) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  return text.substr(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
}

}  // namespace velmora
