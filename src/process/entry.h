// The start of every process of the program, whichever role it plays.
#pragma once

#include <string>

namespace velmora {

// Applies settings file, mirror, probe and command line in this order, so that a later one
// overrides an earlier one. Then plays the process's role (hand_over.h). `commandLine` is the text
// after the program's own name. Returns the exit code, for platform::EndProcess. Main thread, once.
[[nodiscard]] int RunProgram(const std::string& commandLine);

}  // namespace velmora
