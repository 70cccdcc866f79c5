// An update run: load the cache, connect, fetch the list, remove, check and download, save the
// cache. UpdateFiles prepares it on the dialog's thread; a worker thread of its own carries it out.
#pragma once

#include "platform/dialog.h"

namespace velmora {

// Prepares and starts a run. True when its worker thread started. While another run is active, it
// returns false and touches nothing. A run that is only saving its cache is waited for, because the
// buttons are enabled already. Dialog thread.
bool UpdateFiles();

// The phase of the latest run. Never waits. Any thread.
[[nodiscard]] platform::RunPhase CurrentRunPhase();

// Returns when no run is saving its cache. Any thread but the worker.
void WaitWhileSaving();

// Returns when no worker is active. Any thread but the worker.
void WaitForRunEnd();

}  // namespace velmora
