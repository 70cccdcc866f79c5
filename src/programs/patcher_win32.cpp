// The patcher's main on Windows.
#include "platform/processes.h"
#include "platform/win32/start.h"
#include "process/entry.h"

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR, int) {
  const std::string commandLine = velmora::platform::BeginProcess(instance);
  velmora::platform::EndProcess(velmora::RunProgram(commandLine));
}
