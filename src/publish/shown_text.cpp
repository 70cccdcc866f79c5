#include "publish/shown_text.h"

#include <algorithm>

#include "platform/posix/terminal_text.h"

namespace velmora::publish {

std::string ShownText(std::string_view text) {
  std::string shown = platform::terminal::ToUtf8(text);
  std::replace(shown.begin(), shown.end(), '\n', '?');
  return shown;
}

}  // namespace velmora::publish
