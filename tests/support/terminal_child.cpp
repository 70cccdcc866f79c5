#include "support/terminal_child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <utmp.h>

#include <cstdio>
#include <utility>

namespace velmora::test {
namespace {

constexpr int kDeadline = 40;        // seconds
constexpr unsigned kChildLife = 60;  // seconds

class Deadline {
 public:
  [[nodiscard]] bool IsOver() const { return time(nullptr) > end_; }

 private:
  time_t end_ = time(nullptr) + kDeadline;
};

// What the parent has printed but not yet written mustn't come out of the child, too.
pid_t Fork() {
  fflush(nullptr);
  return fork();
}

[[noreturn]] void RunBody(const std::function<int()>& body) {
  alarm(kChildLife);
  _exit(body());
}

void Close(int& descriptor) {
  if (descriptor >= 0) close(descriptor);
  descriptor = -1;
}

// Appends what is there; closes a stream that has ended.
void ReadSome(int& descriptor, std::string& text) {
  char bytes[65536];
  const ssize_t count = read(descriptor, bytes, sizeof bytes);
  if (count > 0) {
    text.append(bytes, static_cast<std::size_t>(count));
  } else {
    Close(descriptor);
  }
}

}  // namespace

TerminalChild TerminalChild::WithPipes(const std::function<int()>& body) {
  int in[2];
  int out[2];
  int err[2];
  EXPECT_EQ(pipe2(in, O_CLOEXEC) | pipe2(out, O_CLOEXEC) | pipe2(err, O_CLOEXEC), 0);
  const pid_t child = Fork();
  if (child == 0) {
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    for (const int* const ends : {in, out, err}) {
      close(ends[0]);
      close(ends[1]);
    }
    RunBody(body);
  }
  close(out[1]);
  close(err[1]);
  return {child, {in[1], out[0], err[0]}, in[0]};
}

TerminalChild TerminalChild::OnTerminal(const std::function<int()>& body, unsigned short columns,
                                        unsigned short rows, const char* kind) {
  int master = -1;
  int slave = -1;
  winsize size = {rows, columns, 0, 0};
  EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
  const pid_t child = Fork();
  if (child == 0) {
    close(master);
    login_tty(slave);
    unsetenv("TERM");
    if (kind != nullptr) setenv("TERM", kind, 1);
    RunBody(body);
  }
  return {child, {master, dup(master), -1}, slave};
}

TerminalChild::TerminalChild(TerminalChild&& other) noexcept
    : child_(std::exchange(other.child_, -1)),
      streams_(std::exchange(other.streams_, {-1, -1, -1})),
      childSide_(std::exchange(other.childSide_, -1)) {}

TerminalChild::~TerminalChild() {
  if (child_ > 0) {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  for (int* const descriptor : {&streams_.input, &streams_.output, &streams_.errors, &childSide_}) {
    Close(*descriptor);
  }
}

void TerminalChild::Send(const std::string& text) const {
  EXPECT_EQ(write(streams_.input, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void TerminalChild::CloseInput() { Close(streams_.input); }
void TerminalChild::CloseOutput() { Close(streams_.output); }
void TerminalChild::Signal(int signal) const { kill(child_, signal); }

void TerminalChild::Pump(int milliseconds) {
  pollfd waited[] = {{streams_.output, POLLIN, 0}, {streams_.errors, POLLIN, 0}};
  if (poll(waited, 2, milliseconds) <= 0) return;
  if (waited[0].revents != 0) ReadSome(streams_.output, output_);
  if (waited[1].revents != 0) ReadSome(streams_.errors, errors_);
}

bool TerminalChild::WaitFor(const std::string& text) {
  const Deadline deadline;
  while (true) {
    const std::size_t found = output_.find(text, seen_);
    if (found != std::string::npos) {
      seen_ = found + text.size();
      return true;
    }
    if (deadline.IsOver()) break;
    Pump(10);
  }
  ADD_FAILURE() << "never came: " << text << "\nbut: " << output_;
  return false;
}

int TerminalChild::Wait() {
  const Deadline deadline;
  int status = 0;
  pid_t ended = 0;
  while (ended == 0 && !deadline.IsOver()) {
    Pump(10);
    ended = waitpid(child_, &status, WNOHANG);
  }
  if (ended != child_) {
    ADD_FAILURE() << "the child doesn't end: " << output_ << errors_;
    return -1;
  }
  child_ = -1;
  for (std::size_t before = ~std::size_t{0}; before != output_.size() + errors_.size();) {
    before = output_.size() + errors_.size();
    Pump(0);
  }
  return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

bool TerminalChild::IsTerminalNormal() const {
  termios modes = {};
  tcgetattr(childSide_, &modes);
  return (modes.c_lflag & ICANON) != 0 && (modes.c_lflag & ECHO) != 0;
}

}  // namespace velmora::test
