// The one worker thread of an update run.
#pragma once

#include <cstdint>

namespace velmora::platform {

using ThreadHandle = std::uintptr_t;

// Starts a thread that runs `entry`; 0 on failure. Nobody joins the thread. Closing its handle
// doesn't end it; the end of the process does, whatever it is doing.
[[nodiscard]] ThreadHandle StartThread(void (*entry)());
void CloseThreadHandle(ThreadHandle handle);

}  // namespace velmora::platform
