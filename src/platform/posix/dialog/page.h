// What shows in the information pane.
#pragma once

#include <string>

namespace velmora::platform::dialog {

// Has the dialog, if it is open, show the page of this address. Any thread.
void ShowPage(const std::string& url);

}  // namespace velmora::platform::dialog
