#include "platform/threads.h"

#include <process.h>
#include <windows.h>

namespace velmora::platform {

namespace {

unsigned __stdcall RunEntry(void* entry) {
  reinterpret_cast<void (*)()>(entry)();
  _endthreadex(0);
  return 0;
}

}  // namespace

ThreadHandle StartThread(void (*entry)()) {
  return _beginthreadex(nullptr, 0, RunEntry, reinterpret_cast<void*>(entry), 0, nullptr);
}

void CloseThreadHandle(ThreadHandle handle) { CloseHandle(reinterpret_cast<HANDLE>(handle)); }

}  // namespace velmora::platform
