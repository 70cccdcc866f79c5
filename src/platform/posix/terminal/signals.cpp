#include "platform/posix/terminal/signals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/posix/terminal/device.h"

namespace velmora::platform::terminal {
namespace {

constexpr std::array kServed = {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGCONT, SIGWINCH};
constexpr std::array kFatal = {SIGQUIT, SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL};

// Never closed: a handler may still be running on another thread.
int pipeEnds[2] = {-1, -1};
struct sigaction actionsBefore[NSIG];

void OnServed(int signal) {
  const int errorBefore = errno;
  const char number = static_cast<char>(signal);
  static_cast<void>(!write(pipeEnds[1], &number, 1));
  errno = errorBefore;
}

void OnFatal(int signal, siginfo_t* info, void*) {
  RestoreTerminal();
  sigaction(signal, &actionsBefore[signal], nullptr);
  // A fault repeats by itself, with its address, as soon as this returns.
  const bool isFault = info->si_code > 0 && signal != SIGQUIT;
  if (!isFault) raise(signal);
}

// Programs that this one starts inherit an ignored signal, but not one with a handler.
void OnBrokenPipe(int) {}

void Install(int signal, struct sigaction action) {
  sigaction(signal, nullptr, &actionsBefore[signal]);
  if (actionsBefore[signal].sa_handler == SIG_IGN) return;
  action.sa_flags |= SA_RESTART | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

struct sigaction ActionFor(void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  return action;
}

struct sigaction FatalAction() {
  struct sigaction action = {};
  action.sa_sigaction = OnFatal;
  action.sa_flags = SA_SIGINFO;
  return action;
}

}  // namespace

bool WatchSignals() {
  if (pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  for (const int signal : kServed) Install(signal, ActionFor(OnServed));
  for (const int signal : kFatal) Install(signal, FatalAction());
  Install(SIGPIPE, ActionFor(OnBrokenPipe));
  return true;
}

int SignalDescriptor() { return pipeEnds[0]; }

std::optional<int> NextSignal() {
  char number = 0;
  if (read(pipeEnds[0], &number, 1) != 1) return std::nullopt;
  return number;
}

void StopProcess() {
  struct sigaction watching;
  sigaction(SIGTSTP, &actionsBefore[SIGTSTP], &watching);
  raise(SIGTSTP);
  sigaction(SIGTSTP, &watching, nullptr);
}

}  // namespace velmora::platform::terminal
