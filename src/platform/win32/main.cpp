// The program's start.
#include <windows.h>

#include "platform/processes.h"
#include "platform/win32/instance.h"
#include "process/entry.h"

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR commandLine, int) {
  velmora::platform::SetProgramInstance(instance);
  velmora::platform::EndProcess(velmora::RunProgram(commandLine));
}
