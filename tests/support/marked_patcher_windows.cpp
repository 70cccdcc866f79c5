// A patcher of another edition: the same program, which also leaves a line in the file
// "edition.txt" for each process of it.
#include <windows.h>

#include <fstream>

#include "platform/processes.h"
#include "platform/win32/instance.h"
#include "process/entry.h"

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR commandLine, int) {
  std::ofstream("edition.txt", std::ios::app | std::ios::binary)
      << "next edition: " << commandLine << "\n";
  velmora::platform::SetProgramInstance(instance);
  velmora::platform::EndProcess(velmora::RunProgram(commandLine));
}
