// The program's text as UTF-8, for terminals and JSON, and back. Pure; safe from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmora::platform {

// `text` as UTF-8 (RFC 3629). Whatever isn't code page 932 becomes '?'. So do control characters,
// which could steer a terminal; but a line feed stays, and a tab becomes a space.
[[nodiscard]] std::string ToUtf8(std::string_view text);

// The text for which ToUtf8 returns exactly `utf8`, with the bytes that Windows gives it where code
// page 932 has a character twice. Nothing if there is none: code page 932 lacks the character, or
// has only one that looks like it.
[[nodiscard]] std::optional<std::string> FromUtf8(std::string_view utf8);

}  // namespace velmora::platform
