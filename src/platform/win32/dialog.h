// The dialog's window, for the rest of this platform.
#pragma once

#include <windows.h>

namespace velmora::platform {

// Null before the dialog's first message. After the dialog has gone it names a window that is gone.
[[nodiscard]] HWND DialogWindow();

}  // namespace velmora::platform
