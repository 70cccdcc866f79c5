// The hand-over between the installed patcher and its temporary copy.
//
// A running program file can't be replaced, so the file that the player starts never does the work:
// it copies itself to _VelmoraUpdate.exe, starts the copy and ends. The copy shows the dialog and
// may replace VelmoraUpdate.exe; when the dialog has closed it starts that file once more, with /C
// to remove the copy, or with /R to remove it and go through the cycle again.
//
// Main thread; these are the whole of a process from the end of the command line on.
#pragma once

#include <cstddef>

namespace velmora {

// Exit codes other than 0. Nothing reads them.
inline constexpr int kExitNoWindow = -1;
inline constexpr int kExitRestart = -10;

// The text handed to the installed patcher holds at most 127 bytes: "/C " or "/R " and 124 of the
// tail. A longer tail is cut after the last whole option that fits.
inline constexpr std::size_t kMaxHandedTail = 124;

// Takes the role that the name of the running file gives: a name with a leading underscore is the
// temporary copy, any other the installed patcher. The result is the exit code.
[[nodiscard]] int RunByRole();

}  // namespace velmora
