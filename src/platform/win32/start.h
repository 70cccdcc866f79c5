// What a process of the program does before anything else.
#pragma once

#include <windows.h>

#include <string>

namespace velmora::platform {

// Keeps libraries that lie in the game's folder out of the process, remembers the program's
// instance, and returns the command line after the program's name, in the system's code page.
[[nodiscard]] std::string BeginProcess(HINSTANCE instance);

}  // namespace velmora::platform
