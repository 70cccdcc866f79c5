// What the process has one of, and other sources here need to know: the program's instance and the
// hidden window. Main thread only.
#pragma once

#include <windows.h>

namespace velmora::platform {

// Null, which stands for the program file too, until it has been set.
[[nodiscard]] HINSTANCE ProgramInstance();
void SetProgramInstance(HINSTANCE instance);

// Null as long as there is none.
[[nodiscard]] HWND HiddenWindow();

}  // namespace velmora::platform
