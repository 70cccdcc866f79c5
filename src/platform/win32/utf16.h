// Conversion between the code pages of byte strings and UTF-16, in which the system takes and
// returns what players read: shown that way, the program's texts don't depend on the code page of
// the player's system, which may have no Japanese. Safe from any thread.
#pragma once

#include <string>
#include <string_view>

namespace velmora::platform {

// The code page of the program's own texts.
inline constexpr unsigned kTextCodePage = 932;

// Bytes that are no character become the system's replacement for one.
[[nodiscard]] std::wstring ToUtf16(std::string_view text, unsigned codePage = kTextCodePage);

// Not exact: a character that the code page lacks becomes one that looks like it, or a question
// mark.
[[nodiscard]] std::string FromUtf16(std::wstring_view text, unsigned codePage = kTextCodePage);

}  // namespace velmora::platform
