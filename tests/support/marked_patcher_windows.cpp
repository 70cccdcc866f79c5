// Another version of the patcher: the same program, which also appends a line to "edition.txt" in
// each process. A hook in it swallows all quit messages.
#include <fstream>

#include "platform/processes.h"
#include "platform/win32/start.h"
#include "process/entry.h"

LRESULT CALLBACK TakeQuit(int code, WPARAM wParam, LPARAM lParam) {
  auto& message = *reinterpret_cast<MSG*>(lParam);
  if (message.message == WM_QUIT) message.message = WM_NULL;
  return CallNextHookEx(nullptr, code, wParam, lParam);
}

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR, int) {
  const std::string commandLine = velmora::platform::BeginProcess(instance);
  std::ofstream("edition.txt", std::ios::app | std::ios::binary)
      << "next edition: " << commandLine << "\n";
  SetWindowsHookExW(WH_GETMESSAGE, TakeQuit, nullptr, GetCurrentThreadId());
  velmora::platform::EndProcess(velmora::RunProgram(commandLine));
}
