// The line that stands for the information pane on a terminal.
#pragma once

#include <string>

namespace velmora::platform::terminal {

// Shows a page's address in the dialog, if that is open. Any thread.
void ShowPageAddress(const std::string& url);

}  // namespace velmora::platform::terminal
