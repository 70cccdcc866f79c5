// ASCII characters, independent of the locale. These functions look at single bytes, so a text that
// may hold double-byte characters, whose trail byte can look like ASCII, must be walked by
// `Characters` (base/text.h) first. Pure; safe from any thread.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace velmora {

[[nodiscard]] constexpr bool IsAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

[[nodiscard]] constexpr bool IsControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

// Windows takes both as the end of a folder's name.
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

[[nodiscard]] inline bool StartsWithoutCase(std::string_view text, std::string_view start) {
  return EqualWithoutCase(text.substr(0, start.size()), start);
}

[[nodiscard]] inline bool HasControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(), IsControl);
}

inline constexpr char kHexDigits[] = "0123456789ABCDEF";

// `text` with each byte for which `mustEscape` is true as %XX (RFC 3986, 2.1).
[[nodiscard]] inline std::string Escaped(std::string_view text, bool (*mustEscape)(char)) {
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (mustEscape(c)) {
      escaped += {'%', kHexDigits[byte >> 4], kHexDigits[byte & 15]};
    } else {
      escaped += c;
    }
  }
  return escaped;
}

// `text` without those of `characters` at either end.
[[nodiscard]] constexpr std::string_view Trimmed(std::string_view text,
                                                 std::string_view characters) {
  const std::size_t first = text.find_first_not_of(characters);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(characters) + 1 - first);
}

// Whether `host`, without a port, can be the name or address of a server.
[[nodiscard]] inline bool IsHost(std::string_view host) {
  return !host.empty() && host.find_first_of(" /\\?#@") == std::string_view::npos &&
         !HasControl(host);
}

// `text` without the byte order mark that editors put in front of UTF-8.
[[nodiscard]] constexpr std::string_view WithoutByteOrderMark(std::string_view text) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  return text.substr(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
}

}  // namespace velmora
