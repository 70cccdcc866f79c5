// The message box outside the dialog, on the terminal's error stream.
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/console.h"
#include "platform/processes.h"
#include "platform/utf8.h"

namespace velmora::platform {
namespace {

bool IsTerminal() { return isatty(STDIN_FILENO) == 1 && IsErrorStreamATerminal(); }

// Accepts any key, including Ctrl-C and Ctrl-Z: the start still has to end in an orderly way.
void WaitForKey() {
  termios before{};
  if (tcgetattr(STDIN_FILENO, &before) != 0) return;
  termios raw = before;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
  raw.c_cc[VMIN] = 1;
  raw.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSAFLUSH, &raw);
  // Only now, since tcsetattr has dropped what was typed before.
  std::fputs("[Enter]\n", stderr);
  char key = 0;
  while (read(STDIN_FILENO, &key, 1) < 0 && errno == EINTR) {
  }
  tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
}

}  // namespace

void ShowStartBox(const std::string& text, const std::string& caption, std::uint32_t) {
  std::fprintf(stderr, "%s: %s\n", ToUtf8(caption).c_str(), ToUtf8(text).c_str());
  if (IsTerminal()) WaitForKey();
}

}  // namespace velmora::platform
