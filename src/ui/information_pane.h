// The information pane: shows the publisher's page in the dialog. The patcher opens the page once
// and neither reads it nor waits for it. Dialog thread.
#pragma once

#include "platform/browser.h"

namespace velmora {

// Opens InformationUrl in the pane. Without a control in the pane nothing happens. With a control
// that is no browser, the player is told and the dialog ends.
//
// The result is the pane's control, or 0, for the caller to give back when the dialog has opened.
[[nodiscard]] platform::PaneControl StartInformationPane();

// Lets go of the browser, if there is one.
void CloseInformationPane();

}  // namespace velmora
