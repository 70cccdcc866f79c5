#include "platform/posix/terminal/device.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "platform/posix/terminal/kind.h"
#include "platform/posix/terminal/screen.h"

namespace velmora::platform::terminal {
namespace {

std::atomic<bool> keyboardTaken = false;
std::atomic<bool> screenTaken = false;
bool modesKept = false;
termios modesBefore;  // of standard input, before the first TakeKeyboard

// A process in the background must leave the terminal to the one in front. Without job control on
// this terminal there is no such order.
bool IsInFront() {
  const pid_t front = tcgetpgrp(STDIN_FILENO);
  return front == -1 || front == getpgrp();
}

// The system stops a process that changes a terminal's modes from the background, even if it has
// been put there only a moment ago.
class NoStopByTerminal {
 public:
  NoStopByTerminal() {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTTOU);
    pthread_sigmask(SIG_BLOCK, &blocked, &before_);
  }
  ~NoStopByTerminal() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  NoStopByTerminal(const NoStopByTerminal&) = delete;
  NoStopByTerminal& operator=(const NoStopByTerminal&) = delete;

 private:
  sigset_t before_;
};

void RestoreModes() {
  const NoStopByTerminal noStop;
  if (IsInFront()) tcsetattr(STDIN_FILENO, TCSANOW, &modesBefore);
}

}  // namespace

void FillStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    // The lowest free number is the one that is missing.
    if (fcntl(descriptor, F_GETFD) == -1) static_cast<void>(!open("/dev/null", O_RDWR));
  }
}

bool IsScreen() {
  const char* const kind = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && kind != nullptr && CanRedraw(kind);
}

bool IsKeyboard() { return isatty(STDIN_FILENO) == 1; }

int OpenScreen() {
  const int own = open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  return own == -1 ? STDOUT_FILENO : own;
}

ScreenSize CurrentScreenSize() {
  ScreenSize size;
  winsize told = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &told) == -1) return size;
  if (told.ws_col > 0) size.columns = told.ws_col;
  if (told.ws_row > 0) size.rows = told.ws_row;
  return size;
}

void TakeKeyboard() {
  if (!modesKept) modesKept = tcgetattr(STDIN_FILENO, &modesBefore) == 0;
  if (!modesKept) return;
  termios modes = modesBefore;
  modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  modes.c_cc[VMIN] = 1;
  modes.c_cc[VTIME] = 0;
  keyboardTaken = true;
  tcsetattr(STDIN_FILENO, TCSANOW, &modes);
}

void TakeScreen() { screenTaken = true; }

void LeaveScreen() { screenTaken = false; }

void RestoreTerminal() {
  if (keyboardTaken.exchange(false)) RestoreModes();
  if (screenTaken.exchange(false)) {
    static_cast<void>(!write(STDOUT_FILENO, "\r\n", 2));
    static_cast<void>(!write(STDOUT_FILENO, kShowCursor, sizeof kShowCursor - 1));
  }
}

}  // namespace velmora::platform::terminal
