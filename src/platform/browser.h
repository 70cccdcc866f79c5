// The browser inside the information pane, as the dialog hosts it. Handles are references that the
// caller gives back; 0 is none. Dialog thread only.
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

// Settings of the browser, with the numbers as they are handed to it. Results aren't told.
void SetBrowserResizable(Browser browser, int value);
void SetBrowserFullScreen(Browser browser, int value);
void SetBrowserDropTarget(Browser browser, int value);
void SetBrowserRegistered(Browser browser, int value);

// Opens a page. Returns at once; the page loads by itself, or not.
void NavigateBrowser(Browser browser, const std::string& url);

}  // namespace velmora::platform
