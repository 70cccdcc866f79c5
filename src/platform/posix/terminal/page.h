// The line that replaces the information pane on a terminal.
#pragma once

#include <string>

namespace velmora::platform::terminal {

// Shows the page's address if the dialog is open. Any thread.
void ShowPageAddress(const std::string& url);

}  // namespace velmora::platform::terminal
