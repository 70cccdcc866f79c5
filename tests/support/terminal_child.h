// Runs code in a child process whose standard input and output are pipes or a terminal, and talks
// to it. No wait is endless: a child that hangs is killed by its alarm.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>

namespace velmora::test {

class TerminalChild {
 public:
  // The child ends with the result of `body` as its exit code, without running destructors.
  static TerminalChild WithPipes(const std::function<int()>& body) {
    int in[2];
    int out[2];
    int err[2];
    EXPECT_EQ(pipe2(in, O_CLOEXEC) | pipe2(out, O_CLOEXEC) | pipe2(err, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      dup2(err[1], STDERR_FILENO);
      for (const int end : {in[1], out[0], err[0]}) close(end);
      RunBody(body);
    }
    close(out[1]);
    close(err[1]);
    return {child, {in[1], out[0], err[0], in[0]}};
  }

  // A terminal of unknown size if `columns` is 0, of unknown kind if `kind` is null.
  static TerminalChild OnTerminal(const std::function<int()>& body, unsigned short columns = 80,
                                  unsigned short rows = 24, const char* kind = "xterm") {
    int master = -1;
    const winsize size = {rows, columns, 0, 0};
    const pid_t child = forkpty(&master, nullptr, nullptr, &size);
    if (child == 0) {
      unsetenv("TERM");
      if (kind != nullptr) setenv("TERM", kind, 1);
      RunBody(body);
    }
    return {child, {master, dup(master)}};
  }

  TerminalChild(TerminalChild&& other) noexcept
      : child_(std::exchange(other.child_, -1)), streams_(std::exchange(other.streams_, {})) {}
  ~TerminalChild() {
    Signal(SIGKILL);
    if (child_ > 0) waitpid(child_, nullptr, 0);
    for (int* const stream : {&streams_.in, &streams_.out, &streams_.err, &streams_.childSide}) {
      Close(*stream);
    }
  }

  void Send(const std::string& text) const {
    EXPECT_EQ(write(streams_.in, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void CloseInput() { Close(streams_.in); }
  void CloseOutput() { Close(streams_.out); }
  void Signal(int signal) const {
    if (child_ > 0) kill(child_, signal);
  }

  // Reads what the child writes, waiting for it this long at most. False if nothing came.
  bool Pump(int milliseconds) {
    pollfd waited[] = {{streams_.out, POLLIN, 0}, {streams_.err, POLLIN, 0}};
    if (poll(waited, 2, milliseconds) <= 0) return false;
    if (waited[0].revents != 0) Read(streams_.out, output_);
    if (waited[1].revents != 0) Read(streams_.err, errors_);
    return true;
  }

  // Waits until the output holds `text` after the place that the last call found.
  bool WaitFor(const std::string& text) {
    for (bool isLastLook = false; !isLastLook; Pump(10)) {
      isLastLook = HasEnded();
      const std::size_t found = output_.find(text, seen_);
      if (found == std::string::npos) continue;
      seen_ = found + text.size();
      return true;
    }
    ADD_FAILURE() << "never came: " << text << "\nbut: " << output_ << errors_;
    return false;
  }

  // Waits for the end. The exit code, or 1000 + the signal that killed the child.
  int Wait() {
    while (!HasEnded()) Pump(10);
    return WIFSIGNALED(status_) ? 1000 + WTERMSIG(status_) : WEXITSTATUS(status_);
  }

  [[nodiscard]] bool IsRunning() { return !HasEnded(); }

  [[nodiscard]] const std::string& output() const { return output_; }
  [[nodiscard]] const std::string& errors() const { return errors_; }
  // Whether the terminal passes on whole lines and echoes them.
  [[nodiscard]] bool IsTerminalNormal() const {
    termios modes = {};
    tcgetattr(streams_.in, &modes);
    return (modes.c_lflag & ICANON) != 0 && (modes.c_lflag & ECHO) != 0;
  }

 private:
  struct Streams {
    int in = -1;
    int out = -1;
    int err = -1;
    int childSide = -1;  // of the input: a child that has ended must not raise SIGPIPE
  };

  TerminalChild(pid_t child, Streams streams) : child_(child), streams_(streams) {}

  [[noreturn]] static void RunBody(const std::function<int()>& body) {
    // A shell starts background jobs with these ignored.
    signal(SIGINT, SIG_DFL);
    signal(SIGQUIT, SIG_DFL);
    alarm(60);
    _exit(body());
  }

  static void Close(int& stream) {
    if (stream >= 0) close(stream);
    stream = -1;
  }

  // Closes a stream that has ended.
  static void Read(int& stream, std::string& text) {
    char bytes[65536];
    const ssize_t count = read(stream, bytes, sizeof bytes);
    if (count > 0) {
      text.append(bytes, static_cast<std::size_t>(count));
    } else {
      Close(stream);
    }
  }

  // True once the child has ended and all of its output is here.
  bool HasEnded() {
    if (child_ > 0 && waitpid(child_, &status_, WNOHANG) == child_) {
      child_ = -1;
      while (Pump(0)) {
      }
    }
    return child_ < 0;
  }

  pid_t child_;  // -1 once it has ended
  int status_ = 0;
  Streams streams_;
  std::string output_;
  std::string errors_;
  std::size_t seen_ = 0;  // of output_, by WaitFor
};

}  // namespace velmora::test
