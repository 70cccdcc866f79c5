// What a process of the program does before anything else.
#pragma once

#include <windows.h>

#include <string>

namespace velmora::platform {

// Keeps libraries in the game's folder from being loaded, stores the program's instance, and
// returns the command line after the program's name, in the system's code page.
[[nodiscard]] std::string BeginProcess(HINSTANCE instance);

}  // namespace velmora::platform
