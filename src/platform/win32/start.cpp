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

constexpr bool IsSpaceOrTab(wchar_t c) { return c == L' ' || c == L'\t'; }

// What WinMain gets for it is wrong after bytes above 0x7F: mingw's start-up code takes the first
// of them for the end of the name. And in the system's code page a character of the name may have
// become a space or a quote that looks like it, so the name's end is found before the conversion.
std::wstring_view AfterProgramName(std::wstring_view commandLine) {
  bool quoted = false;
  std::size_t i = 0;
  for (; i < commandLine.size() && (quoted || !IsSpaceOrTab(commandLine[i])); ++i) {
    if (commandLine[i] == L'"') quoted = !quoted;
  }
  while (i < commandLine.size() && IsSpaceOrTab(commandLine[i])) ++i;
  return commandLine.substr(i);
}

std::string InSystemCodePage(std::wstring_view text) {
  const int length = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_ACP, 0, text.data(), length, bytes.data(), size, nullptr, nullptr);
  return bytes;
}

}  // namespace

std::string BeginProcess(HINSTANCE instance) {
  LoadLibrariesFromSystemFolder();
  SetProgramInstance(instance);
  return InSystemCodePage(AfterProgramName(GetCommandLineW()));
}

}  // namespace velmora::platform
