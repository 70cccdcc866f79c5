// Hosts an OLE control in a dialog. A control of the window class AtlAxWin71 creates, while it is
// created itself, the OLE control whose class id is its caption, and shows it over its whole client
// area. Dialog thread only.
#pragma once

#include <windows.h>

namespace velmora::platform {

// Makes the window class and its messages known to the process. A second call changes nothing.
void AtlAxWinInit();

// Shows the dialog of a template of the extended form and returns the result that it was ended
// with; -1 if there is no such template or if one of the dialog's windows, or the OLE control in
// it, can't be created. Keys that are pressed inside of an OLE control go to that control first.
INT_PTR AtlAxDialogBox(HINSTANCE instance, WORD templateNumber, HWND owner, DLGPROC procedure,
                       LPARAM parameter);

// The control that a window of the class hosts, with a reference for the caller; null if it hosts
// none, or if there is no such window.
[[nodiscard]] IUnknown* GetHostedControl(HWND hostWindow);

}  // namespace velmora::platform
