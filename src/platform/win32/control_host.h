// Hosts OLE controls in a dialog. A window of the class AtlAxWin71 creates the OLE control whose
// class id is its caption, and shows it over its whole client area. Dialog thread only.
#pragma once

#include <windows.h>

namespace velmora::platform {

// Registers the window class and its messages. A second call changes nothing.
void AtlAxWinInit();

// Shows the dialog of an extended template (DIALOGEX) and returns the result it was ended with; -1
// if there is no such template, or if one of the dialog's windows or its OLE control can't be
// created. A key that is pressed inside an OLE control is offered to that control first.
INT_PTR AtlAxDialogBox(HINSTANCE instance, WORD templateNumber, HWND owner, DLGPROC procedure,
                       LPARAM parameter);

// The OLE control that a window of the class hosts, with a reference for the caller; null if it
// hosts none, or if there is no such window.
[[nodiscard]] IUnknown* GetHostedControl(HWND hostWindow);

}  // namespace velmora::platform
