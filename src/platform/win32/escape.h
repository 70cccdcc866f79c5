// Percent-escapes of request paths (RFC 3986).
#pragma once

#include <string>

namespace velmora::platform {

inline void AppendEscaped(std::string& text, char c) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  text += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
}

}  // namespace velmora::platform
