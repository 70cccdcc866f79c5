// The pass over UpdateSet: brings each record's local file up to date before it turns to the next.
#pragma once

#include "engine/record_set.h"

namespace velmora {

// True when every record was finished. False when a cancel was seen at a record's head (UpdateState
// stays kCancelAsked), when a download failed (UpdateState is kNotRunning, the player was told), or
// when the patcher or its settings file was replaced (RestartRequested is set). Worker thread.
[[nodiscard]] bool UpdatePass(const FileRecordSet& updateSet);

}  // namespace velmora
