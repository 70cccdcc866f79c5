// The words that a run's worker thread and the dialog's thread share.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/threads.h"

namespace velmora {

// Values of UpdateState.
inline constexpr std::uint32_t kNotRunning = 0;  // a run is being prepared, or the last one failed
inline constexpr std::uint32_t kRunning = 1;     // the passes are running, a cancel can be asked
inline constexpr std::uint32_t kEnded = 2;       // the last run completed or was cancelled
inline constexpr std::uint32_t kCancelAsked = 3;

extern std::atomic<std::uint32_t> UpdateState;

// The patcher must start again when the dialog has closed. Never cleared.
extern std::atomic<std::uint32_t> RestartRequested;

// A re-check was asked, and no run has completed since.
extern std::atomic<std::uint8_t> RecheckPending;

// Bytes that the records after the current one have on the server, without those that the cache
// vouches for; kUnknownBytes until a run meets a record that it doesn't vouch for.
inline constexpr std::int64_t kUnknownBytes = -1;
extern std::atomic<std::int64_t> BytesAhead;

// The latest worker thread; dialog thread only.
extern platform::ThreadHandle WorkerHandle;

}  // namespace velmora
