#include "platform/clock.h"

#include <ctime>

namespace velmora::platform {

LocalTime CurrentLocalTime() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
          local.tm_hour,        local.tm_min,     local.tm_sec};
}

std::uint32_t TickCount() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  const auto milliseconds = std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
  return static_cast<std::uint32_t>(milliseconds);
}

void Pause(std::uint32_t milliseconds) {
  timespec wait{static_cast<time_t>(milliseconds / 1000),
                static_cast<long>(milliseconds % 1000) * 1000000};
  nanosleep(&wait, nullptr);
}

}  // namespace velmora::platform
