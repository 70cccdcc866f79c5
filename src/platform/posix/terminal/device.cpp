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

// A background process must leave the terminal to the foreground. A terminal without job control
// has no foreground process group.
bool IsInForeground() {
  const pid_t foreground = tcgetpgrp(STDIN_FILENO);
  return foreground == -1 || foreground == getpgrp();
}

// The system stops a background process that changes a terminal's modes, even one that has only
// just been moved there.
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
  if (IsInForeground()) tcsetattr(STDIN_FILENO, TCSANOW, &modesBefore);
}

}  // namespace

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
  winsize reported = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &reported) == -1) return size;
  if (reported.ws_col > 0) size.columns = reported.ws_col;
  if (reported.ws_row > 0) size.rows = reported.ws_row;
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

void ReleaseScreen() { screenTaken = false; }

void RestoreTerminal() {
  if (keyboardTaken.exchange(false)) RestoreModes();
  if (screenTaken.exchange(false)) {
    static_cast<void>(!write(STDOUT_FILENO, "\r\n", 2));
    static_cast<void>(!write(STDOUT_FILENO, kShowCursor, sizeof kShowCursor - 1));
  }
}

}  // namespace velmora::platform::terminal
