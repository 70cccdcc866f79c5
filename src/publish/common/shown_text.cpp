#include "publish/common/shown_text.h"

#include <algorithm>

#include "platform/utf8.h"

namespace velmora::publish {

std::string ShownText(std::string_view text) {
  std::string shown = platform::ToUtf8(text);
  std::replace(shown.begin(), shown.end(), '\n', '?');
  return shown;
}

}  // namespace velmora::publish
