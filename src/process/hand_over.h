// The hand-over between the installed patcher and its temporary copy.
//
// A running program file can't be replaced, so the file that the player starts doesn't do the work:
// it copies itself to _VelmoraUpdate.exe, starts the copy and exits. The copy shows the dialog and
// may replace VelmoraUpdate.exe. When the dialog has closed, it starts that file once more: with /C
// to delete the copy, or with /R to delete it and go through the cycle again.
//
// Main thread.
#pragma once

#include <cstddef>

namespace velmora {

// Exit codes other than 0. No part of the program reads them.
inline constexpr int kExitNoWindow = -1;
inline constexpr int kExitRestart = -10;

// The installed patcher gets at most 127 bytes: "/C " or "/R " and 124 bytes of ArgumentTail. A
// longer tail is cut after the last whole option that fits.
inline constexpr std::size_t kMaxPassedTail = 124;

// Plays the role given by the name of the running file: with a leading underscore, the temporary
// copy; otherwise the installed patcher. Returns the exit code.
[[nodiscard]] int RunByRole();

}  // namespace velmora
