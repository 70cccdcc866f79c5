// What the update dialog does at its events, whatever shows it.
#pragma once

#include "platform/dialog.h"

namespace velmora {

// The handlers for platform::RunUpdateDialog. Results of a command: 0, or -1 where the start of a
// run failed.
[[nodiscard]] platform::DialogHandlers UpdateDialogHandlers();

}  // namespace velmora
