// The web browser in the dialog's information pane. Handles are references that the caller
// releases; 0 means none. For the dialog's thread only.
#pragma once

#include <cstdint>
#include <string>

namespace velmora::platform {

using PaneControl = std::uintptr_t;
using Browser = std::uintptr_t;

// The control that the pane hosts, 0 if it hosts none.
[[nodiscard]] PaneControl GetPaneControl();
void ReleasePaneControl(PaneControl control);

// The control's browser interface, 0 if it has none.
[[nodiscard]] Browser GetBrowser(PaneControl control);
void ReleaseBrowser(Browser browser);

// Settings of the browser. The numbers are passed to it unchanged, and failures are ignored.
void SetBrowserResizable(Browser browser, int value);
void SetBrowserFullScreen(Browser browser, int value);
void SetBrowserDropTarget(Browser browser, int value);
void SetBrowserRegistered(Browser browser, int value);

// Starts to load a page. Returns at once, and failures are ignored.
void NavigateBrowser(Browser browser, const std::string& url);

}  // namespace velmora::platform
