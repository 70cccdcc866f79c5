// What the system's descriptions of terminals (terminfo) say.
#pragma once

namespace velmora::platform::terminal {

// Whether terminals of this kind, a value of TERM, are known to move the cursor and to erase a line
// by the sequences that a block is drawn with.
[[nodiscard]] bool CanRedraw(const char* kind);

}  // namespace velmora::platform::terminal
