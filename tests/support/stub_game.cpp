// A game that notes its command line in the working directory that it was started in.
#include <windows.h>

#include <fstream>

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR commandLine, int) {
  std::ofstream("started.txt") << commandLine;
  return 0;
}
