// The text mode of Windows' C runtime, in which the session log and the verification cache are
// written on every system alike.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// What stands on disk for `text`: every LF becomes CR LF. Nothing else changes.
[[nodiscard]] std::string EncodeTextMode(std::string_view text);

// What a reader in text mode sees of a file's bytes: nothing from the first 0x1A (Ctrl-Z) on.
[[nodiscard]] std::string_view UpToEndOfText(std::string_view bytes);

// Takes the next line off `rest`, which must not be empty: everything up to LF or the end, without
// the LF and without one CR in front of it.
[[nodiscard]] std::string_view TakeTextLine(std::string_view& rest);

}  // namespace velmora
