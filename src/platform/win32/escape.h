// Percent-escapes of request paths (RFC 3986).
#pragma once

#include <string>

#include "base/ascii.h"

namespace velmora::platform {

inline void AppendEscaped(std::string& text, char c) {
  const auto byte = static_cast<unsigned char>(c);
  text += {'%', kHexDigits[byte >> 4], kHexDigits[byte & 15]};
}

}  // namespace velmora::platform
