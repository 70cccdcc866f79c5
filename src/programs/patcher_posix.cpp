// The patcher's main on systems that split the command line into arguments.
#include <string>

#include "platform/posix/standard_descriptors.h"
#include "platform/processes.h"
#include "process/entry.h"

int main(int count, char** arguments) {
  velmora::platform::FillStandardDescriptors();
  std::string commandLine;
  for (int i = 1; i < count; ++i) {
    if (i > 1) commandLine += ' ';
    commandLine += arguments[i];
  }
  velmora::platform::EndProcess(velmora::RunProgram(commandLine));
}
