// What the program does at the update dialog's events, on every platform.
#pragma once

#include "platform/dialog.h"

namespace velmora {

// The handlers for platform::RunUpdateDialog. A command returns 0, or -1 if it failed to start a
// run.
[[nodiscard]] platform::DialogHandlers UpdateDialogHandlers();

}  // namespace velmora
