// What the system's descriptions of terminals (terminfo) say.
#pragma once

namespace velmora::platform::terminal {

// Whether terminals of this kind, a value of TERM, are known to understand the sequences by which a
// block is redrawn: those that move the cursor up and erase a line.
[[nodiscard]] bool CanRedraw(const char* kind);

}  // namespace velmora::platform::terminal
