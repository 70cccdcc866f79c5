// The message box outside the dialog.
#include <cstdio>

#include "platform/posix/desktop/box.h"
#include "platform/posix/desktop/toolkit.h"
#include "platform/processes.h"
#include "platform/utf8.h"

namespace velmora::platform {

void ShowStartBox(const std::string& text, const std::string& caption, std::uint32_t type) {
  std::fprintf(stderr, "%s: %s\n", ToUtf8(caption).c_str(), ToUtf8(text).c_str());
  if (!desktop::StartToolkit()) return;
  bool isAnswered = false;
  desktop::OpenBox(nullptr, {text, caption, type}, [&] { isAnswered = true; });
  while (!isAnswered) g_main_context_iteration(nullptr, TRUE);
}

}  // namespace velmora::platform
