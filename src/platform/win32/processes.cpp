#include "platform/processes.h"

// windows.h comes first: the other doesn't stand by itself.
// clang-format off
#include <windows.h>
#include <shellapi.h>
// clang-format on

#include <array>
#include <cstdlib>
#include <utility>

#include "platform/win32/instance.h"
#include "platform/win32/wide_text.h"

namespace velmora::platform {

namespace {

constexpr char kName[] = "VelmoraUpdate";
constexpr std::size_t kModulePathBuffer = 512;

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
  std::array<char, kModulePathBuffer> path{};
  const UINT length = GetWindowModuleFileNameA(hiddenWindow, path.data(), kModulePathBuffer);
  return std::string(path.data(), length);
}

std::string WorkingDirectory(std::size_t bufferSize) {
  std::string directory(bufferSize, '\0');
  const DWORD length = GetCurrentDirectoryA(static_cast<DWORD>(bufferSize), directory.data());
  return Written(std::move(directory), length);
}

std::string ShortPath(const std::string& path, std::size_t bufferSize) {
  if (path.size() >= bufferSize) return path;
  std::string buffer = path;
  buffer.resize(bufferSize);
  const DWORD length =
      GetShortPathNameA(buffer.data(), buffer.data(), static_cast<DWORD>(bufferSize));
  const std::string shortPath = Written(std::move(buffer), length);
  return shortPath.empty() ? path : shortPath;
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
