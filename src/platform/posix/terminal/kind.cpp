// A file of its own: the library's header defines common words as macros.
#include "platform/posix/terminal/kind.h"

#include <curses.h>
#include <term.h>
#include <unistd.h>

#include <string_view>

namespace velmora::platform::terminal {
namespace {

bool Begins(const char* capability, std::string_view sequence) {
  // The library returns -1 as a pointer if the capability is no string.
  char* const text = tigetstr(capability);
  return text != nullptr && text != reinterpret_cast<char*>(-1) &&
         std::string_view(text).starts_with(sequence);
}

}  // namespace

bool CanRedraw(const char* kind) {
  int found = 0;
  if (setupterm(kind, STDOUT_FILENO, &found) != OK) return false;
  const bool can = Begins("el", "\x1b[K") && Begins("cuu", "\x1b[");
  del_curterm(cur_term);
  return can;
}

}  // namespace velmora::platform::terminal
