// The program's texts are code page 932, the system's are UTF-16. Converted here, they don't pass
// through the code page of the player's system, which may know no Japanese. Safe from any thread.
#pragma once

#include <string>
#include <string_view>

namespace velmora::platform {

// Bytes that are no character become one that shows so.
[[nodiscard]] std::wstring WideText(std::string_view text);

// For eyes only: a character without a place in code page 932 becomes one that looks like it, or a
// question mark.
[[nodiscard]] std::string ReadableText(std::wstring_view text);

}  // namespace velmora::platform
