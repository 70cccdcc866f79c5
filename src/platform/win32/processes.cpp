#include "platform/processes.h"

// windows.h comes first: the other doesn't stand by itself.
// clang-format off
#include <windows.h>
#include <shellapi.h>
// clang-format on

#include <cstdlib>
#include <utility>

#include "platform/win32/instance.h"
#include "platform/win32/wide_text.h"

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

// Without a window nobody else would end PumpUntilQuit.
void SendToHiddenWindow(UINT message) {
  if (!IsWindow(hiddenWindow)) {
    PostQuitMessage(0);
  } else {
    SendMessageA(hiddenWindow, message, 0, 0);
  }
}

// A text that the system wrote into a buffer; `length` is what the call gave: without the
// terminator, 0 if it failed, the size needed if the buffer is too small.
std::string Written(std::string buffer, DWORD length) {
  if (length >= buffer.size()) return {};
  buffer.resize(length);
  return buffer;
}

// Paths go through the system's A functions here, so their bytes are of the code page of the
// player's system, whichever that is.
std::wstring WidePath(const std::string& path) {
  const int size = static_cast<int>(path.size());
  std::wstring wide(path.size(), L'\0');
  const int length =
      MultiByteToWideChar(CP_ACP, 0, path.data(), size, wide.data(), static_cast<int>(wide.size()));
  wide.resize(static_cast<std::size_t>(length));
  return wide;
}

// Nothing if the way back leads elsewhere: a character without a place in the code page gives way
// to one that looks like it, and the path becomes that of a neighbour.
std::optional<std::string> ExactPath(const std::wstring& wide) {
  const int length = static_cast<int>(wide.size());
  const int size =
      WideCharToMultiByte(CP_ACP, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
  std::string path(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_ACP, 0, wide.data(), length, path.data(), size, nullptr, nullptr);
  if (WidePath(path) != wide) return std::nullopt;
  return path;
}

// Empty if the system knows none.
std::wstring ShortForm(const std::wstring& path) {
  std::wstring form(GetShortPathNameW(path.c_str(), nullptr, 0), L'\0');
  form.resize(GetShortPathNameW(path.c_str(), form.data(), static_cast<DWORD>(form.size())));
  return form;
}

// A directory in its long form, or in its short one if only that can be told; else nothing.
std::optional<std::string> DirectoryText(const std::wstring& directory) {
  if (auto exact = ExactPath(directory)) return exact;
  const std::wstring form = ShortForm(directory);
  return form.empty() ? std::nullopt : ExactPath(form);
}

#ifndef _WIN64
static_assert(sizeof(SHELLEXECUTEINFOA) == 60);
#endif

// Nobody reads the result, nor the handle of the process that SEE_MASK_NOCLOSEPROCESS gives: it
// goes with this process, which ends next.
void Start(ULONG mask, const char* file, const char* directory, const char* parameters) {
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

HWND HiddenWindow() { return hiddenWindow; }

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

// Whoever comes here has seen to the quit message, so there is nothing to sleep for. Should
// something in this process have taken it, the missing window says the same.
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
  MessageBoxW(hiddenWindow, WideText(text).c_str(), WideText(caption).c_str(), type);
}

std::string ModulePath() {
  std::wstring path(kModulePathBuffer, L'\0');
  const DWORD length = GetModuleFileNameW(nullptr, path.data(), kModulePathBuffer);
  if (length == kModulePathBuffer) return {};
  path.resize(length);
  // The name itself stays as it is: it decides what the process does.
  const std::size_t name = path.rfind(L'\\') + 1;
  const auto directory = DirectoryText(path.substr(0, name));
  const auto file = ExactPath(path.substr(name));
  return directory && file ? *directory + *file : std::string();
}

std::string WorkingDirectory(std::size_t bufferSize) {
  std::wstring wide(bufferSize, L'\0');
  const DWORD length = GetCurrentDirectoryW(static_cast<DWORD>(bufferSize), wide.data());
  if (length >= bufferSize) return {};
  wide.resize(length);
  const auto directory = DirectoryText(wide);
  return directory && directory->size() < bufferSize ? *directory : std::string();
}

std::string ShortPath(const std::string& path, std::size_t bufferSize) {
  const auto shortPath = ExactPath(ShortForm(WidePath(path)));
  const bool usable = shortPath && !shortPath->empty() && shortPath->size() < bufferSize;
  return usable ? *shortPath : path;
}

std::string SystemFolder(std::size_t bufferSize) {
  std::string folder(bufferSize, '\0');
  const UINT length = GetWindowsDirectoryA(folder.data(), static_cast<UINT>(bufferSize));
  return Written(std::move(folder), length);
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
  Start(SEE_MASK_NOCLOSEPROCESS, file.c_str(), directory.c_str(), parameters.c_str());
}

std::string LaunchProgram(const std::string& file, const std::optional<std::string>& directory,
                          const std::string& parameters) {
  Start(SEE_MASK_NOASYNC, file.c_str(), directory ? directory->c_str() : nullptr,
        parameters.c_str());
  return {};
}

// ExitProcess would tell every library of its end, and the C runtime then destroys what the worker
// may have been in the middle of.
void EndProcess(int exitCode) {
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
  std::abort();
}

}  // namespace velmora::platform
