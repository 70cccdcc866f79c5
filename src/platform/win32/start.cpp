#include "platform/win32/start.h"

#include <string_view>

#include "platform/win32/instance.h"

namespace velmora::platform {
namespace {

// From here on libraries are looked for in the system's folder alone. Those that load with the
// program are known to Windows or named by the manifest; the others load on their first call, so
// after this (see delayed_library in platform.cmake). A Windows 7 without its updates lacks the
// function.
void LoadLibrariesFromSystemFolder() {
  using SetDirectories = BOOL(WINAPI*)(DWORD);
  const HMODULE kernel = GetModuleHandleA("kernel32.dll");
  const auto setDirectories = reinterpret_cast<SetDirectories>(
      reinterpret_cast<void*>(GetProcAddress(kernel, "SetDefaultDllDirectories")));
  if (setDirectories != nullptr) setDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

constexpr bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// What WinMain gets for it is wrong after bytes above 0x7F: mingw's start-up code takes the first
// of them for the end of the name. No blank and no quote is part of a double-byte character.
std::string BehindProgramName(std::string_view commandLine) {
  bool quoted = false;
  std::size_t i = 0;
  for (; i < commandLine.size() && (quoted || !IsBlank(commandLine[i])); ++i) {
    if (commandLine[i] == '"') quoted = !quoted;
  }
  while (i < commandLine.size() && IsBlank(commandLine[i])) ++i;
  return std::string(commandLine.substr(i));
}

}  // namespace

std::string BeginProcess(HINSTANCE instance) {
  LoadLibrariesFromSystemFolder();
  SetProgramInstance(instance);
  return BehindProgramName(GetCommandLineA());
}

}  // namespace velmora::platform
