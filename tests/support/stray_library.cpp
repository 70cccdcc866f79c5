// A library in the game's folder that records when a process loads it in place of the system's.
#include <windows.h>

#include <array>
#include <fstream>

BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    std::array<char, MAX_PATH> path{};
    GetModuleFileNameA(library, path.data(), static_cast<DWORD>(path.size()));
    std::ofstream("loaded.txt", std::ios::app) << path.data() << "\n";
  }
  return TRUE;
}
