// The reason of a failed system call, kept until it is asked for.
#pragma once

#include <windows.h>

#include <cstdint>

namespace velmora::platform {

// GetLastError for the caller's `error`, as signed as the log prints it.
[[nodiscard]] inline std::int32_t LastErrorCode() {
  return static_cast<std::int32_t>(GetLastError());
}

}  // namespace velmora::platform
