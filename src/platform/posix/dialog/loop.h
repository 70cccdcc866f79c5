// The loop that shows the dialog: on a terminal or on a desktop, whichever is linked. For the
// dialog's thread only.
#pragma once

#include <optional>

#include "platform/dialog.h"
#include "platform/posix/dialog/state.h"

namespace velmora::platform::dialog {

// Shows the dialog until `state` has ended, and returns the result. Nothing, without effect, if the
// system lacks what the dialog needs.
[[nodiscard]] std::optional<int> RunLoop(DialogState& state, const DialogHandlers& handlers);

// For handlers; without effect outside RunLoop. Returns when the box is answered or the dialog has
// ended.
void ShowBoxInLoop(const BoxText& box);
// Calls the handler that closes the dialog, unless the dialog has ended.
void CloseInLoop();

}  // namespace velmora::platform::dialog
