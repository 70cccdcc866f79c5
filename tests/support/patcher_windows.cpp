#include "support/patcher_windows.h"

// After windows.h, which it needs.
#include <commctrl.h>
#include <gtest/gtest.h>

#include <array>
#include <iostream>

#include "platform/win32/utf16.h"

namespace velmora::test {
namespace {

constexpr char kTitle[] = "VELMORA アップデート  1.12";
constexpr int kBoxTextControl = 0xFFFF;

// 0 if the window doesn't answer within five seconds.
LRESULT Ask(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  DWORD_PTR result = 0;
  SendMessageTimeoutW(window, message, wParam, lParam, SMTO_ABORTIFHUNG, 5000, &result);
  return static_cast<LRESULT>(result);
}

// GetWindowTextW can read only captions of another process's windows; the message reads all texts.
std::string TextOf(HWND window) {
  std::array<wchar_t, 1024> text{};
  Ask(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
  return platform::FromUtf16(text.data());
}

bool IsPatcherDialog(HWND window) { return TextOf(window) == kTitle; }

// The windows of a box exist a moment before their texts do.
bool IsReadyBox(HWND window) {
  const HWND text = GetDlgItem(window, kBoxTextControl);
  return text != nullptr && !TextOf(text).empty();
}

// Waits for a visible dialog or box of the chain; null if none appears.
HWND WaitForWindow(const ProcessChain& chain, bool (*isWanted)(HWND)) {
  constexpr char kDialogClass[] = "#32770";
  HWND window = nullptr;
  WaitUntil([&] {
    while ((window = FindWindowExA(nullptr, window, kDialogClass, nullptr)) != nullptr) {
      if (IsWindowVisible(window) && chain.Owns(window) && isWanted(window)) return true;
    }
    return false;
  });
  return window;
}

bool ClickButton(HWND button) {
  return IsWindowVisible(button) && IsWindowEnabled(button) &&
         PostMessageA(button, BM_CLICK, 0, 0) != FALSE;
}

}  // namespace

bool WaitUntil(const std::function<bool()>& holds, unsigned milliseconds) {
  const ULONGLONG end = GetTickCount64() + milliseconds;
  while (!holds()) {
    if (GetTickCount64() > end) return false;
    Sleep(20);
  }
  return true;
}

ProcessChain::ProcessChain() : job_(CreateJobObjectA(nullptr, nullptr)) {
  // The processes end even if this one is killed.
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job_, JobObjectExtendedLimitInformation, &limits, sizeof limits);
}

ProcessChain::~ProcessChain() {
  TerminateJobObject(job_, 1);
  static_cast<void>(WaitForEnd());  // so that their files can be removed
  CloseHandle(job_);
}

void ProcessChain::Start(const std::string& program, const std::string& options) {
  std::string commandLine = program + (options.empty() ? "" : " " + options);
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  ASSERT_TRUE(CreateProcessA(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                             CREATE_SUSPENDED, nullptr, nullptr, &startup, &process))
      << program << ": " << GetLastError();
  EXPECT_TRUE(AssignProcessToJobObject(job_, process.hProcess)) << GetLastError();
  ResumeThread(process.hThread);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
}

bool ProcessChain::WaitForEnd() {
  return WaitUntil([this] {
    JOBOBJECT_BASIC_ACCOUNTING_INFORMATION processes{};
    EXPECT_TRUE(QueryInformationJobObject(job_, JobObjectBasicAccountingInformation, &processes,
                                          sizeof processes, nullptr));
    return processes.ActiveProcesses == 0;
  });
}

bool ProcessChain::Owns(HWND window) const {
  DWORD id = 0;
  GetWindowThreadProcessId(window, &id);
  const HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id);
  BOOL owns = FALSE;
  IsProcessInJob(process, job_, &owns);
  CloseHandle(process);
  return owns != FALSE;
}

std::string AnswerBox(const ProcessChain& chain) {
  const HWND box = WaitForWindow(chain, IsReadyBox);
  if (box == nullptr) return "(no box)";
  const std::string content = TextOf(box) + ": " + TextOf(GetDlgItem(box, kBoxTextControl));
  const HWND button = FindWindowExA(box, nullptr, "Button", nullptr);
  const bool isGone = WaitUntil([button] { return ClickButton(button); }) &&
                      WaitUntil([box] { return !IsWindow(box); });
  return content + (isGone ? "" : " (stays open)");
}

PatcherDialog::PatcherDialog(const ProcessChain& chain)
    : window_(WaitForWindow(chain, IsPatcherDialog)) {}

std::string PatcherDialog::Picture() const {
  std::string picture = "<" + TextOf(WindowOf(Control::kStatusLine)) + ">";
  for (const Control bar : {Control::kOverallBar, Control::kFileBar}) {
    picture += " " + std::to_string(Ask(WindowOf(bar), PBM_GETPOS, 0, 0));
  }
  for (const Control control :
       {Control::kUpdateButton, Control::kStartGameButton, Control::kRecheckButton,
        Control::kOptionsButton, Control::kScreenshotsButton}) {
    const HWND button = WindowOf(control);
    const std::string caption = TextOf(button);
    picture += IsWindowVisible(button) ? " " : " hidden";
    picture += IsWindowEnabled(button) ? "[" + caption + "]" : "(" + caption + ")";
  }
  return picture;
}

bool PatcherDialog::WaitFor(const std::string& part) const {
  if (WaitUntil([&] { return Picture().find(part) != std::string::npos; })) return true;
  std::cout << "Waited for " << part << " at " << Picture() << "\n";
  return false;
}

bool PatcherDialog::Click(Control control) const { return ClickButton(WindowOf(control)); }

HWND PatcherDialog::Focus() const {
  GUITHREADINFO info{};
  info.cbSize = sizeof info;
  GetGUIThreadInfo(GetWindowThreadProcessId(window_, nullptr), &info);
  return info.hwndFocus;
}

bool PatcherDialog::Press(WPARAM key) const {
  const HWND focus = Focus();
  return focus != nullptr && PostMessageW(focus, WM_KEYDOWN, key, 0) != FALSE &&
         PostMessageW(focus, WM_KEYUP, key, 0) != FALSE;
}

bool PatcherDialog::TabTo(Control control) const {
  for (int tabs = 0; tabs < 8 && Focus() != WindowOf(control); ++tabs) {
    const HWND before = Focus();
    if (!Press(VK_TAB) || !WaitUntil([&] { return Focus() != before; })) return false;
  }
  return Focus() == WindowOf(control);
}

void PatcherDialog::Command(Control control) const {
  PostMessageA(window_, WM_COMMAND, MAKEWPARAM(control, BN_CLICKED),
               reinterpret_cast<LPARAM>(WindowOf(control)));
}

void PatcherDialog::Close() const { PostMessageA(window_, WM_SYSCOMMAND, SC_CLOSE, 0); }

HWND PatcherDialog::WindowOf(Control control) const {
  return GetDlgItem(window_, static_cast<int>(control));
}

}  // namespace velmora::test
