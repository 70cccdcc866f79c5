// A game that writes down beside itself how it was started: its command line and its directory.
#include <windows.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR commandLine, int) {
  std::array<wchar_t, 512> path{};
  GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
  std::array<char, 512> directory{};
  GetCurrentDirectoryA(static_cast<DWORD>(directory.size()), directory.data());
  std::ofstream(std::filesystem::path(path.data() + std::wstring(L".started")), std::ios::binary)
      << commandLine << "\n"
      << directory.data() << "\n";
  return 0;
}
