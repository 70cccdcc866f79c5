// The state that a run's worker thread and the dialog's thread share.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/threads.h"

namespace velmora {

// Values of UpdateState.
inline constexpr std::uint32_t kNotRunning = 0;  // a run is being prepared, or the last one failed
inline constexpr std::uint32_t kRunning = 1;     // the passes are running and can be cancelled
inline constexpr std::uint32_t kEnded = 2;       // the last run completed or was cancelled
inline constexpr std::uint32_t kCancelAsked = 3;

extern std::atomic<std::uint32_t> UpdateState;

// The patcher must restart when the dialog has closed. Never cleared.
extern std::atomic<std::uint32_t> RestartRequested;

// A re-check was requested, and no run has completed since.
extern std::atomic<std::uint8_t> RecheckPending;

// The transfer sizes of the records after the current one, without those that the cache vouches
// for. kUnknownBytes until a run reaches the first record that it doesn't vouch for.
inline constexpr std::int64_t kUnknownBytes = -1;
extern std::atomic<std::int64_t> BytesAhead;

// The latest worker thread; dialog thread only.
extern platform::ThreadHandle WorkerHandle;

}  // namespace velmora
