// The start of every process of the program, whichever role it plays.
#pragma once

#include <string>

namespace velmora {

// Settings file, mirror and probe, command line: in this order, so that a later one overrules an
// earlier one. Then the hand-over. `commandLine` is the text behind the program's own name. The
// result is the exit code, for platform::EndProcess. Main thread, once.
[[nodiscard]] int RunProgram(const std::string& commandLine);

}  // namespace velmora
