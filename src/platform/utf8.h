// The program's text as UTF-8, for terminals and JSON. Pure; safe from any thread.
#pragma once

#include <string>
#include <string_view>

namespace velmora::platform {

// `text` as UTF-8 (RFC 3629). What isn't code page 932 becomes '?', and so does every control
// character but the line feed, which stays, and the tab, which becomes a space: a terminal can't be
// steered by it.
[[nodiscard]] std::string ToUtf8(std::string_view text);

}  // namespace velmora::platform
