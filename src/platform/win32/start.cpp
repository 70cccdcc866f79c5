#include "platform/win32/start.h"

#include <string_view>

#include "platform/win32/instance.h"
#include "platform/win32/utf16.h"

namespace velmora::platform {
namespace {

// From here on libraries are loaded from the system's folder alone. Those that were loaded with the
// program are known to Windows or named by the manifest; the others are loaded on their first call,
// which comes later (see delayed_library in platform.cmake). Windows 7 lacks the function until it
// is updated.
void LoadLibrariesFromSystemFolder() {
  using SetDirectories = BOOL(WINAPI*)(DWORD);
  const HMODULE kernel = GetModuleHandleA("kernel32.dll");
  const auto setDirectories = reinterpret_cast<SetDirectories>(
      reinterpret_cast<void*>(GetProcAddress(kernel, "SetDefaultDllDirectories")));
  if (setDirectories != nullptr) setDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

constexpr bool IsSpaceOrTab(wchar_t c) { return c == L' ' || c == L'\t'; }

// WinMain's own parameter is wrong after bytes above 0x7F: mingw's start-up code takes the first of
// them for the end of the name. And the conversion to the system's code page may turn a character
// of the name into a space or a quote, so the end of the name is found before it.
std::wstring_view AfterProgramName(std::wstring_view commandLine) {
  bool quoted = false;
  std::size_t i = 0;
  for (; i < commandLine.size() && (quoted || !IsSpaceOrTab(commandLine[i])); ++i) {
    if (commandLine[i] == L'"') quoted = !quoted;
  }
  while (i < commandLine.size() && IsSpaceOrTab(commandLine[i])) ++i;
  return commandLine.substr(i);
}

}  // namespace

std::string BeginProcess(HINSTANCE instance) {
  LoadLibrariesFromSystemFolder();
  SetProgramInstance(instance);
  return FromUtf16(AfterProgramName(GetCommandLineW()), CP_ACP);
}

}  // namespace velmora::platform
