#include "platform/dialog.h"

#include <windows.h>
// After windows.h, which it needs.
#include <commctrl.h>
#include <ole2.h>

#include <atomic>

#include "platform/win32/control_host.h"
#include "platform/win32/dialog.h"
#include "platform/win32/instance.h"
#include "platform/win32/utf16.h"

namespace velmora::platform {
namespace {

constexpr WORD kDialogTemplate = 101;
constexpr WORD kProgramIcon = 146;

// Tells the dialog that the control whose window is the wParam is about to be disabled.
constexpr UINT kBeforeDisabling = WM_APP;

// Set once, and read by the worker as well. It keeps its value when the window is destroyed; all
// calls with it then fail without harm.
std::atomic<HWND> dialogWindow = nullptr;
DialogHandlers dialogHandlers = {};

HWND ControlWindow(Control control) { return GetDlgItem(dialogWindow, static_cast<int>(control)); }

// A negative number keeps its sign in the wider parameters of a 64-bit system.
void SendToBar(Control bar, UINT message, std::int32_t wParam, std::int32_t lParam) {
  SendDlgItemMessageA(dialogWindow, static_cast<int>(bar), message, static_cast<WPARAM>(wParam),
                      lParam);
}

void SetText(Control control, const std::string& text) {
  SetWindowTextW(ControlWindow(control), ToUtf16(text).c_str());
}

// When a control with the focus is disabled, nothing has the focus, and no key reaches the dialog.
void MoveFocusFrom(HWND control) {
  if (GetFocus() == control) SendMessageW(dialogWindow, WM_NEXTDLGCTL, 0, FALSE);
}

INT_PTR CALLBACK UpdateDialogProc(HWND window, UINT message, WPARAM wParam, LPARAM) {
  if (dialogWindow == nullptr) dialogWindow = window;
  switch (message) {
    case WM_INITDIALOG:
      dialogHandlers.opened();
      return TRUE;
    case WM_COMMAND:
      return dialogHandlers.command(LOWORD(wParam));
    case WM_CLOSE:
      dialogHandlers.close();
      return TRUE;
    case WM_DESTROY:
      dialogHandlers.destroyed();
      return FALSE;
    case kBeforeDisabling:
      MoveFocusFrom(reinterpret_cast<HWND>(wParam));
      return FALSE;
    default:
      return FALSE;
  }
}

// OLE for the dialog's thread. It outlives the dialog, whose last messages may release a browser.
class OleScope {
 public:
  OleScope() : started_(SUCCEEDED(OleInitialize(nullptr))) {}
  ~OleScope() {
    if (started_) OleUninitialize();
  }
  OleScope(const OleScope&) = delete;
  OleScope& operator=(const OleScope&) = delete;

 private:
  bool started_;
};

void RegisterProgressBars() {
  const INITCOMMONCONTROLSEX classes = {.dwSize = sizeof classes, .dwICC = ICC_PROGRESS_CLASS};
  InitCommonControlsEx(&classes);
}

}  // namespace

HWND DialogWindow() { return dialogWindow; }

void SetStatusText(const std::string& text) { SetText(Control::kStatusLine, text); }

void SetBarRange(Control bar, std::int32_t lowest, std::int32_t highest) {
  SendToBar(bar, PBM_SETRANGE32, lowest, highest);
}

void SetBarStep(Control bar, std::int32_t step) { SendToBar(bar, PBM_SETSTEP, step, 0); }

void SetBarPosition(Control bar, std::int32_t position) { SendToBar(bar, PBM_SETPOS, position, 0); }

void MoveBarPosition(Control bar, std::int32_t difference) {
  SendToBar(bar, PBM_DELTAPOS, difference, 0);
}

void StepBar(Control bar) { SendToBar(bar, PBM_STEPIT, 0, 0); }

void EnableControl(Control control, bool enable) {
  const HWND window = ControlWindow(control);
  // Only the dialog's thread can move the focus.
  if (!enable) SendMessageW(dialogWindow, kBeforeDisabling, reinterpret_cast<WPARAM>(window), 0);
  EnableWindow(window, enable ? TRUE : FALSE);
}

void SetButtonCaption(Control button, const std::string& text) { SetText(button, text); }

void SetDialogIcon() {
  const HICON icon = LoadIconA(ProgramInstance(), MAKEINTRESOURCEA(kProgramIcon));
  SendMessageA(dialogWindow, WM_SETICON, ICON_SMALL, reinterpret_cast<LPARAM>(icon));
  SendMessageA(dialogWindow, WM_SETICON, ICON_BIG, reinterpret_cast<LPARAM>(icon));
}

void ShowMessageBox(const std::string& text, const std::string& caption, std::uint32_t type) {
  // MessageBoxW accepts a null owner, and would show a box that belongs to no window.
  if (!IsWindow(dialogWindow)) return;
  MessageBoxW(dialogWindow, ToUtf16(text).c_str(), ToUtf16(caption).c_str(), type);
}

void AskToClose() { SendMessageA(dialogWindow, WM_CLOSE, 0, 0); }

int RunUpdateDialog(const DialogHandlers& handlers) {
  const OleScope ole;
  dialogHandlers = handlers;
  RegisterProgressBars();
  return static_cast<int>(
      AtlAxDialogBox(ProgramInstance(), kDialogTemplate, nullptr, UpdateDialogProc, 0));
}

void EndUpdateDialog(int result) { EndDialog(dialogWindow, result); }

}  // namespace velmora::platform
