// What has come over the network, for whoever shows a rate.
#pragma once

#include <atomic>
#include <cstdint>

namespace velmora::platform {

// The bytes of all answers' bodies since the start of the process. Grows as they arrive.
inline std::atomic<std::int64_t> bodyBytesReceived = 0;

}  // namespace velmora::platform
