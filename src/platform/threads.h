// The one worker thread of an update run.
#pragma once

#include <cstdint>

namespace velmora::platform {

using ThreadHandle = std::uintptr_t;

// Starts a thread that runs `entry` and ends with it. 0 if no thread can be had. Nobody waits for
// the thread: closing its handle doesn't end it, and the end of the process ends it wherever it
// stands.
[[nodiscard]] ThreadHandle StartThread(void (*entry)());
void CloseThreadHandle(ThreadHandle handle);

}  // namespace velmora::platform
