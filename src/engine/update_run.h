// An update run: load the cache, connect, fetch the list, remove, check and download, save the
// cache. UpdateFiles prepares it on the dialog's thread; one worker thread carries it out and ends
// with it.
#pragma once

namespace velmora {

// Prepares and starts a run. True when its worker thread started. A run that lives keeps another
// one from starting: false, and nothing is touched. One that has only its cache left to save, so
// that its buttons serve already, is waited for. Dialog thread.
bool UpdateFiles();

// Whether a run's worker lives; waits like UpdateFiles. Any thread but the worker.
[[nodiscard]] bool IsRunInProgress();

// Returns when no run's worker lives. Not for the worker itself.
void WaitForRunEnd();

}  // namespace velmora
