// Names and paths as this machine's disks hold them: bytes, mostly UTF-8 (RFC 3629). Pure; safe
// from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmora::publish {

// Takes the first character off a text that isn't empty. Nothing, and the text is as it was, if it
// doesn't begin with a character in UTF-8.
[[nodiscard]] std::optional<char32_t> TakeCharacter(std::string_view& text);

[[nodiscard]] bool IsUtf8(std::string_view text);

// `path` in UTF-8, on one line, for the publisher's terminal and for JSON. An element that isn't
// UTF-8 is read as code page 932. Control characters, and bytes that are neither, become '?'.
[[nodiscard]] std::string ShownPath(std::string_view path);

}  // namespace velmora::publish
