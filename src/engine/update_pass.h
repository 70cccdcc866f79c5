// The pass over UpdateSet: checks one local file after the other, and replaces it if necessary.
#pragma once

#include "engine/record_set.h"

namespace velmora {

// True when every record is done. False when a cancel was seen before a record (UpdateState stays
// kCancelAsked), when a download failed (UpdateState is kNotRunning, the player was told), or when
// the patcher or its settings file was replaced (RestartRequested is set). Worker thread.
[[nodiscard]] bool UpdatePass(const FileRecordSet& updateSet);

}  // namespace velmora
