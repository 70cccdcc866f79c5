// Another version of the patcher: the same program, which also appends a line to "edition.txt" in
// each process.
#include <fstream>
#include <string>

#include "platform/processes.h"
#include "process/entry.h"

int main(int count, char** arguments) {
  std::string commandLine;
  for (int i = 1; i < count; ++i) commandLine += std::string(i > 1 ? " " : "") + arguments[i];
  std::ofstream("edition.txt", std::ios::app) << "next edition: " << commandLine << "\n";
  velmora::platform::EndProcess(velmora::RunProgram(commandLine));
}
