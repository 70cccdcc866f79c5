// Time for the log's stamps, the choice of a mirror and pauses between attempts. Safe from any
// thread.
#pragma once

#include <cstdint>

namespace velmora::platform {

struct LocalTime {
  int year = 0;
  int month = 0;  // 1 to 12
  int day = 0;
  int hour = 0;  // 0 to 23
  int minute = 0;
  int second = 0;
};

[[nodiscard]] LocalTime CurrentLocalTime();

// Milliseconds since an arbitrary moment; wraps around.
[[nodiscard]] std::uint32_t TickCount();

// Sleeps.
void Pause(std::uint32_t milliseconds);

}  // namespace velmora::platform
