#include "support/patcher_windows.h"

// After windows.h, which it needs.
#include <commctrl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "platform/win32/wide_text.h"

namespace velmora::test {
namespace {

constexpr char kDialogClass[] = "#32770";
constexpr char kTitle[] = "VELMORA アップデート  1.12";
constexpr int kBoxTextControl = 0xFFFF;
constexpr UINT kReplyPatience = 5000;  // milliseconds that a window may take for one message
constexpr DWORD kPause = 20;

LRESULT Ask(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  DWORD_PTR result = 0;
  if (SendMessageTimeoutW(window, message, wParam, lParam, SMTO_ABORTIFHUNG, kReplyPatience,
                          &result) == 0) {
    return 0;
  }
  return static_cast<LRESULT>(result);
}

// GetWindowTextW knows only captions of another process's windows, the message knows all texts.
std::string TextOf(HWND window) {
  std::array<wchar_t, 1024> text{};
  Ask(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
  return platform::ReadableText(text.data());
}

std::string ClassOf(HWND window) {
  std::array<char, 64> name{};
  GetClassNameA(window, name.data(), static_cast<int>(name.size()));
  return name.data();
}

BOOL CALLBACK Collect(HWND window, LPARAM list) {
  reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
  return TRUE;
}

// The visible dialogs and boxes of the chain's processes.
std::vector<HWND> DialogsOf(const ProcessChain& chain) {
  std::vector<HWND> windows;
  EnumWindows(Collect, reinterpret_cast<LPARAM>(&windows));
  const std::vector<DWORD> processes = chain.RunningProcesses();
  std::erase_if(windows, [&processes](HWND window) {
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    return std::find(processes.begin(), processes.end(), process) == processes.end() ||
           !IsWindowVisible(window) || ClassOf(window) != kDialogClass;
  });
  return windows;
}

HWND FindDialog(const ProcessChain& chain) {
  for (const HWND window : DialogsOf(chain)) {
    if (TextOf(window) == kTitle) return window;
  }
  return nullptr;
}

// The windows of a box exist a moment before their texts do.
HWND FindBox(const ProcessChain& chain) {
  for (const HWND window : DialogsOf(chain)) {
    const HWND text = GetDlgItem(window, kBoxTextControl);
    if (text != nullptr && !TextOf(text).empty()) return window;
  }
  return nullptr;
}

// Both messages wait in the queue together, so that no real mouse comes between them.
bool ClickMiddleOf(HWND button) {
  RECT area{};
  if (!IsWindowVisible(button) || !IsWindowEnabled(button) || !GetClientRect(button, &area)) {
    return false;
  }
  const LPARAM middle = MAKELPARAM(area.right / 2, area.bottom / 2);
  return PostMessageA(button, WM_LBUTTONDOWN, MK_LBUTTON, middle) != FALSE &&
         PostMessageA(button, WM_LBUTTONUP, 0, middle) != FALSE;
}

}  // namespace

bool WaitUntil(const std::function<bool()>& holds, unsigned milliseconds) {
  const ULONGLONG end = GetTickCount64() + milliseconds;
  while (!holds()) {
    if (GetTickCount64() > end) return false;
    Sleep(kPause);
  }
  return true;
}

ProcessChain::ProcessChain() : job_(CreateJobObjectA(nullptr, nullptr)) {
  // Also if this process is ended itself.
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job_, JobObjectExtendedLimitInformation, &limits, sizeof limits);
}

ProcessChain::~ProcessChain() {
  TerminateJobObject(job_, 1);
  // Their files can be removed only when they are gone.
  static_cast<void>(WaitForEnd());
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
  return WaitUntil([this] { return RunningProcesses().empty(); });
}

std::vector<DWORD> ProcessChain::RunningProcesses() const {
  constexpr std::size_t kMost = 64;
  alignas(JOBOBJECT_BASIC_PROCESS_ID_LIST)
      std::array<std::byte, sizeof(JOBOBJECT_BASIC_PROCESS_ID_LIST) + kMost * sizeof(ULONG_PTR)>
          buffer{};
  auto* const list = reinterpret_cast<JOBOBJECT_BASIC_PROCESS_ID_LIST*>(buffer.data());
  if (!QueryInformationJobObject(job_, JobObjectBasicProcessIdList, list,
                                 static_cast<DWORD>(buffer.size()), nullptr)) {
    ADD_FAILURE() << "No list of processes: " << GetLastError();
    return {};
  }
  std::vector<DWORD> processes;
  for (DWORD i = 0; i < list->NumberOfProcessIdsInList; ++i) {
    processes.push_back(static_cast<DWORD>(list->ProcessIdList[i]));
  }
  return processes;
}

std::optional<MessageBoxShown> WaitForBox(const ProcessChain& chain) {
  HWND window = nullptr;
  if (!WaitUntil([&] { return (window = FindBox(chain)) != nullptr; })) return std::nullopt;
  return MessageBoxShown{window, TextOf(window), TextOf(GetDlgItem(window, kBoxTextControl))};
}

bool Answer(const MessageBoxShown& box) {
  const HWND button = FindWindowExA(box.window, nullptr, "Button", nullptr);
  return WaitUntil([button] { return ClickMiddleOf(button); }) &&
         WaitUntil([&box] { return !IsWindow(box.window); });
}

PatcherDialog::PatcherDialog(const ProcessChain& chain) {
  WaitUntil([&] { return (window_ = FindDialog(chain)) != nullptr; });
}

std::string PatcherDialog::Title() const { return TextOf(window_); }

std::string PatcherDialog::Text(int control) const { return TextOf(Control(control)); }

bool PatcherDialog::IsEnabled(int control) const {
  return IsWindowEnabled(Control(control)) != FALSE;
}

bool PatcherDialog::IsVisible(int control) const {
  return IsWindowVisible(Control(control)) != FALSE;
}

int PatcherDialog::BarPosition(int control) const {
  return static_cast<int>(Ask(Control(control), PBM_GETPOS, 0, 0));
}

bool PatcherDialog::WaitForText(int control, const std::string& text) const {
  return WaitUntil([&] { return Text(control) == text; });
}

bool PatcherDialog::WaitForEnabled(int control, bool enabled) const {
  return WaitUntil([&] { return IsEnabled(control) == enabled; });
}

bool PatcherDialog::WaitForBarPosition(int control, int position) const {
  return WaitUntil([&] { return BarPosition(control) == position; });
}

bool PatcherDialog::WaitForClosed() const {
  return WaitUntil([this] { return !IsOpen(); });
}

bool PatcherDialog::Click(int control) const { return ClickMiddleOf(Control(control)); }

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

bool PatcherDialog::TabTo(int control) const {
  constexpr int kTabs = 8;
  for (int i = 0; i < kTabs && Focus() != Control(control); ++i) {
    const HWND before = Focus();
    if (!Press(VK_TAB) || !WaitUntil([&] { return Focus() != before; })) return false;
  }
  return Focus() == Control(control);
}

void PatcherDialog::Command(int control) const {
  PostMessageA(window_, WM_COMMAND, MAKEWPARAM(control, BN_CLICKED),
               reinterpret_cast<LPARAM>(Control(control)));
}

void PatcherDialog::Close() const { PostMessageA(window_, WM_SYSCOMMAND, SC_CLOSE, 0); }

}  // namespace velmora::test
