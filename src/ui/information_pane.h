// The information pane, which shows the publisher's page in the dialog. The patcher opens the page
// once; it neither reads it nor waits for it. Dialog thread.
#pragma once

#include "platform/browser.h"

namespace velmora {

// Opens InformationUrl in the pane. Does nothing if the pane has no control. If the control isn't a
// browser, tells the player and ends the dialog.
//
// Returns the pane's control, or 0. The caller releases it when the dialog has opened.
[[nodiscard]] platform::PaneControl StartInformationPane();

// Releases the browser, if there is one.
void CloseInformationPane();

}  // namespace velmora
