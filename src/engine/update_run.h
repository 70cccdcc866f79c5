// An update run: load the cache, connect, fetch the list, remove, check and download, save the
// cache. UpdateFiles prepares it on the dialog's thread; one worker thread carries it out and ends
// with it.
#pragma once

#include "platform/dialog.h"

namespace velmora {

// Prepares and starts a run. True when its worker thread started. A run that lives keeps another
// one from starting: false, and nothing is touched. One that has only its cache left to save, so
// that its buttons serve already, is waited for. Dialog thread.
bool UpdateFiles();

// The phase of the latest run. Never waits. Any thread.
[[nodiscard]] platform::RunPhase CurrentRunPhase();

// Returns when no run is saving its cache. Any thread but the worker.
void WaitWhileSaving();

// Returns when no run's worker lives. Not for the worker itself.
void WaitForRunEnd();

}  // namespace velmora
