#include "platform/processes.h"

// windows.h comes first: the other header needs it.
// clang-format off
#include <windows.h>
#include <shellapi.h>
// clang-format on

#include <cstdlib>

#include "platform/win32/instance.h"
#include "platform/win32/utf16.h"

namespace velmora::platform {

namespace {

constexpr char kName[] = "VelmoraUpdate";
constexpr DWORD kModulePathBuffer = 512;

HINSTANCE programInstance = nullptr;
HWND hiddenWindow = nullptr;

LRESULT CALLBACK HiddenWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_CLOSE:
      DestroyWindow(window);
      return 0;
    case WM_DESTROY:
      PostQuitMessage(0);
      return 0;
    default:
      return DefWindowProcA(window, message, wParam, lParam);
  }
}

// Without the window, nothing else would end PumpUntilQuit.
void SendToHiddenWindow(UINT message) {
  if (!IsWindow(hiddenWindow)) {
    PostQuitMessage(0);
  } else {
    SendMessageA(hiddenWindow, message, 0, 0);
  }
}

// Paths are in the code page of the player's system, by which the system's A functions read them.
// Nothing if the path has characters outside of it: converted to ones that look like them, it could
// be the path of another file.
std::optional<std::string> ExactPath(const std::wstring& wide) {
  std::string path = FromUtf16(wide, CP_ACP);
  if (ToUtf16(path, CP_ACP) != wide) return std::nullopt;
  return path;
}

// Empty if there is none.
std::wstring ShortForm(const std::wstring& path) {
  std::wstring form(GetShortPathNameW(path.c_str(), nullptr, 0), L'\0');
  form.resize(GetShortPathNameW(path.c_str(), form.data(), static_cast<DWORD>(form.size())));
  return form;
}

// A directory in its long form, or in its short one if only that is exact; else nothing.
std::optional<std::string> ExactDirectory(const std::wstring& directory) {
  if (auto exact = ExactPath(directory)) return exact;
  const std::wstring form = ShortForm(directory);
  return form.empty() ? std::nullopt : ExactPath(form);
}

#ifndef _WIN64
static_assert(sizeof(SHELLEXECUTEINFOA) == 60);
#endif

// The result isn't used, nor the process handle that SEE_MASK_NOCLOSEPROCESS returns: this process
// ends next, and the handle with it.
void ShellOpen(ULONG mask, const char* file, const char* directory, const char* parameters) {
  SHELLEXECUTEINFOA launch{};
  launch.cbSize = sizeof launch;
  launch.fMask = mask;
  launch.lpVerb = "open";
  launch.lpFile = file;
  launch.lpParameters = parameters;
  launch.lpDirectory = directory;
  launch.nShow = SW_SHOWNORMAL;
  ShellExecuteExA(&launch);
}

}  // namespace

HINSTANCE ProgramInstance() { return programInstance; }

void SetProgramInstance(HINSTANCE instance) { programInstance = instance; }

bool RegisterHiddenWindow() {
  WNDCLASSEXA windowClass{};
  windowClass.cbSize = sizeof windowClass;
  windowClass.style = CS_VREDRAW | CS_HREDRAW | CS_BYTEALIGNCLIENT;
  windowClass.lpfnWndProc = HiddenWindowProc;
  windowClass.hbrBackground = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
  windowClass.lpszClassName = kName;
  return RegisterClassExA(&windowClass) != 0;
}

void CreateHiddenWindow() {
  hiddenWindow =
      CreateWindowExA(0, kName, kName, 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
}

void CloseHiddenWindow() { SendToHiddenWindow(WM_CLOSE); }

void DestroyHiddenWindow() { SendToHiddenWindow(WM_DESTROY); }

// Doesn't sleep, since the quit message is due at once. If something else in this process removed
// it, the missing window ends the loop.
void PumpUntilQuit() {
  MSG message{};
  while (message.message != WM_QUIT) {
    if (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&message);
      DispatchMessageA(&message);
    } else if (!IsWindow(hiddenWindow)) {
      return;
    }
  }
}

void ShowStartBox(const std::string& text, const std::string& caption, std::uint32_t type) {
  MessageBoxW(hiddenWindow, ToUtf16(text).c_str(), ToUtf16(caption).c_str(), type);
}

std::string ModulePath() {
  std::wstring path(kModulePathBuffer, L'\0');
  const DWORD length = GetModuleFileNameW(nullptr, path.data(), kModulePathBuffer);
  if (length == kModulePathBuffer) return {};
  path.resize(length);
  // The file's own name is never shortened: it decides what the process does.
  const std::size_t name = path.rfind(L'\\') + 1;
  const auto directory = ExactDirectory(path.substr(0, name));
  const auto file = ExactPath(path.substr(name));
  return directory && file ? *directory + *file : std::string();
}

std::string WorkingDirectory(std::size_t bufferSize) {
  std::wstring wide(bufferSize, L'\0');
  const DWORD length = GetCurrentDirectoryW(static_cast<DWORD>(bufferSize), wide.data());
  if (length >= bufferSize) return {};
  wide.resize(length);
  const auto directory = ExactDirectory(wide);
  return directory && directory->size() < bufferSize ? *directory : std::string();
}

std::string ShortPath(const std::string& path, std::size_t bufferSize) {
  const auto shortPath = ExactPath(ShortForm(ToUtf16(path, CP_ACP)));
  const bool usable = shortPath && !shortPath->empty() && shortPath->size() < bufferSize;
  return usable ? *shortPath : path;
}

std::string SystemFolder(std::size_t bufferSize) {
  std::string folder(bufferSize, '\0');
  const UINT length = GetWindowsDirectoryA(folder.data(), static_cast<UINT>(bufferSize));
  if (length >= bufferSize) return {};
  folder.resize(length);
  return folder;
}

NamedMutex CreateNamedMutex(const char* name) {
  const HANDLE mutex = CreateMutexA(nullptr, TRUE, name);
  const bool alreadyExisted = GetLastError() == ERROR_ALREADY_EXISTS;
  return {reinterpret_cast<std::uintptr_t>(mutex), alreadyExisted};
}

void ReleaseNamedMutex(const NamedMutex& mutex) {
  const auto handle = reinterpret_cast<HANDLE>(mutex.handle);
  ReleaseMutex(handle);
  CloseHandle(handle);
}

void StartSuccessor(const std::string& file, const std::string& directory,
                    const std::string& parameters) {
  ShellOpen(SEE_MASK_NOCLOSEPROCESS, file.c_str(), directory.c_str(), parameters.c_str());
}

std::string LaunchProgram(const std::string& file, const std::optional<std::string>& directory,
                          const std::string& parameters) {
  ShellOpen(SEE_MASK_NOASYNC, file.c_str(), directory ? directory->c_str() : nullptr,
            parameters.c_str());
  return {};
}

// ExitProcess would notify every library, and the C runtime would then destroy objects that the
// worker may have been using.
void EndProcess(int exitCode) {
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
  std::abort();
}

}  // namespace velmora::platform
