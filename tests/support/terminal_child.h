// Runs a piece of code in a child process, with pipes or a terminal of its own as standard input
// and output, and talks to it. Every wait has an end: a child that hangs fails the test and is
// killed.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <functional>
#include <string>

namespace velmora::test {

class TerminalChild {
 public:
  struct Streams {
    int input;
    int output;
    int errors;
  };

  // The child ends with what `body` gives as its exit code; no destructors run then.
  static TerminalChild WithPipes(const std::function<int()>& body);
  // On a terminal of the child's own, whose size is unknown if `columns` is 0, and whose kind if
  // `kind` is null.
  static TerminalChild OnTerminal(const std::function<int()>& body, unsigned short columns = 80,
                                  unsigned short rows = 24, const char* kind = "xterm");

  TerminalChild(TerminalChild&& other) noexcept;
  ~TerminalChild();

  void Send(const std::string& text) const;
  void CloseInput();
  void CloseOutput();
  void Signal(int signal) const;

  // Takes in what comes in this time.
  void Pump(int milliseconds);
  // Waits until `text` stands in the output behind the place that the last call found.
  bool WaitFor(const std::string& text);
  // Waits for the end; the exit code, or 1000 + the signal that killed the child.
  int Wait();

  [[nodiscard]] int outputDescriptor() const { return streams_.output; }
  // All that came so far.
  [[nodiscard]] const std::string& output() const { return output_; }
  [[nodiscard]] const std::string& errors() const { return errors_; }
  [[nodiscard]] pid_t id() const { return child_; }
  // Whether the terminal gives whole lines and shows what is typed.
  [[nodiscard]] bool IsTerminalNormal() const;

 private:
  TerminalChild(pid_t child, Streams streams, int childSide)
      : child_(child), streams_(streams), childSide_(childSide) {}

  pid_t child_;
  Streams streams_;
  int childSide_;  // of the terminal, or of the input: who sends to a child that is gone isn't
                   // killed
  std::string output_;
  std::string errors_;
  std::size_t seen_ = 0;
};

}  // namespace velmora::test
