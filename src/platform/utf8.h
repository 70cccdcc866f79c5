// The program's text as UTF-8, for terminals and JSON. Pure; safe from any thread.
#pragma once

#include <string>
#include <string_view>

namespace velmora::platform {

// `text` as UTF-8 (RFC 3629). Whatever isn't code page 932 becomes '?'. So do control characters,
// which could steer a terminal; but a line feed stays, and a tab becomes a space.
[[nodiscard]] std::string ToUtf8(std::string_view text);

}  // namespace velmora::platform
