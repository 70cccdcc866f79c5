// The text mode of Windows' C runtime. The session log and the verification cache are written in
// it on every system.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// The bytes to write for `text`: every LF becomes CR LF. Nothing else changes.
[[nodiscard]] std::string EncodeTextMode(std::string_view text);

// The part of a file that a reader in text mode sees: it ends before the first 0x1A (Ctrl-Z).
[[nodiscard]] std::string_view UpToEndOfText(std::string_view bytes);

// Removes the next line from `rest`, which must not be empty, and returns it without its LF and
// without a CR before that. The last line may lack its LF.
[[nodiscard]] std::string_view TakeTextLine(std::string_view& rest);

}  // namespace velmora
