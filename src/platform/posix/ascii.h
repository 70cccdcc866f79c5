// Letters of ASCII. Other bytes are none, whatever the locale says, and neither is a byte of a
// double-byte character; texts that may hold those are compared character by character.
#pragma once

#include <algorithm>
#include <string_view>

namespace velmora::platform {

[[nodiscard]] constexpr char LowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

[[nodiscard]] inline bool EqualWithoutCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char left, char right) { return LowerCase(left) == LowerCase(right); });
}

}  // namespace velmora::platform
