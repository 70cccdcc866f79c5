// What a program for the command line shares with the one who started it: arguments, standard
// streams, and the wish to stop. Main thread only.
#pragma once

#include <string>
#include <vector>

namespace velmora::platform {

// The arguments after the program's name: natively their bytes, on Windows in UTF-8. `count` and
// `arguments` are those of main.
[[nodiscard]] std::vector<std::string> CommandLineArguments(int count, char** arguments);

// Makes the standard streams fit for text in UTF-8, whose line feeds are written as they are. No
// file that is opened later takes the place of a stream that the caller has closed. To be called
// first of all. A console has its own settings back when the process ends.
void PrepareStandardStreams();

// Has `stop` called, on any thread or in a signal handler, when the user presses Ctrl-C or closes
// the terminal, or the process is asked to end. A second time the process ends at once. On Windows
// a closed console leaves some seconds.
void CallWhenAskedToStop(void (*stop)());

// Whether the error stream is a terminal that understands ECMA-48's sequences.
[[nodiscard]] bool IsErrorStreamATerminal();

struct OutputEnd {
  bool isWritten = false;     // all of it
  bool isReaderGone = false;  // who reads no further knows that, as `head` does
  std::string reason;         // of the system; may be empty
};

// Writes what is left of the standard output and closes it: that may fail as late as here. Nothing
// can be printed afterwards.
[[nodiscard]] OutputEnd EndOutput();

}  // namespace velmora::platform
