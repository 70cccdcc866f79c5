// Percent-escapes of request paths (RFC 3986).
#pragma once

#include <string>
#include <string_view>

#include "base/ascii.h"

namespace velmora::platform {

// `text` with each character for which `mustEscape` is true as %XX.
inline std::string Escaped(std::string_view text, bool (*mustEscape)(char)) {
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

}  // namespace velmora::platform
