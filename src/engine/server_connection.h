// Connects a run to the download server and fetches the reference list. Worker thread. Failures are
// logged and shown to the player here.
#pragma once

#include <atomic>

#include "platform/http.h"

namespace velmora {

// The process-wide handles. The worker opens and closes them; the main thread closes those left
// open when the process ends.
extern std::atomic<platform::HttpHandle> SessionHandle;
extern std::atomic<platform::HttpHandle> ConnectionHandle;
extern std::atomic<platform::HttpHandle> RequestHandle;

// Closes and clears a handle if it is open. Two threads may do so at once; it is closed once.
void CloseIfOpen(std::atomic<platform::HttpHandle>& handle);

// Opens session and connection according to the settings and fetches the list. True when the list
// was parsed; session and connection then stay open for the downloads.
[[nodiscard]] bool ConnectServer();

// Fetches the reference list and fills UpdateSet, RemoveSet and ClientExe from it. True when the
// server answered 200 with a usable Content-Length.
[[nodiscard]] bool FetchReferenceList();

}  // namespace velmora
