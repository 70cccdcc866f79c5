// Counts what has come over the network, to show a rate.
#pragma once

#include <atomic>
#include <cstdint>

namespace velmora::platform {

// The bytes of all responses' bodies that have arrived since the process started.
inline std::atomic<std::int64_t> bodyBytesReceived = 0;

}  // namespace velmora::platform
