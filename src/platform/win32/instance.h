// The program's instance, for the windows and resources of this platform. Main thread only.
#pragma once

#include <windows.h>

namespace velmora::platform {

// Null until it has been set; the system takes null for the program as well.
[[nodiscard]] HINSTANCE ProgramInstance();
void SetProgramInstance(HINSTANCE instance);

}  // namespace velmora::platform
