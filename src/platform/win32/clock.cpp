#include "platform/clock.h"

#include <windows.h>

namespace velmora::platform {

LocalTime CurrentLocalTime() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

std::uint32_t TickCount() { return GetTickCount(); }

void Pause(std::uint32_t milliseconds) { Sleep(milliseconds); }

}  // namespace velmora::platform
