// The dialog's window, for the rest of this platform.
#pragma once

#include <windows.h>

namespace velmora::platform {

// Null before the dialog's first message. Keeps its value when the dialog's window is destroyed.
[[nodiscard]] HWND DialogWindow();

}  // namespace velmora::platform
