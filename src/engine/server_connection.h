// The connection of a run to the download server, and the fetching of the reference list over it.
// Called on the worker thread; failures are told to the player and the log here.
#pragma once

#include <atomic>

#include "platform/http.h"

namespace velmora {

// The process-wide handles. The worker opens and closes them; the main thread closes what is left
// when the process ends.
extern std::atomic<platform::HttpHandle> SessionHandle;
extern std::atomic<platform::HttpHandle> ConnectionHandle;
extern std::atomic<platform::HttpHandle> RequestHandle;

// Closes a handle if it is open and leaves none behind, so that it is closed once however many ask.
void CloseIfOpen(std::atomic<platform::HttpHandle>& handle);

// Opens session and connection as the settings say, and fetches the list. True when the list was
// fetched and parsed; session and connection are then open for the downloads.
[[nodiscard]] bool ConnectServer();

// Fetches the reference list and fills UpdateSet, RemoveSet and ClientExe from it. True when the
// server answered 200 with a usable Content-Length.
[[nodiscard]] bool FetchReferenceList();

}  // namespace velmora
