#include "platform/threads.h"

#include <pthread.h>

namespace velmora::platform {

namespace {

// A thread is detached; its handle only says that it has started.
constexpr ThreadHandle kStarted = 1;

void* RunEntry(void* entry) {
  reinterpret_cast<void (*)()>(entry)();
  return nullptr;
}

}  // namespace

ThreadHandle StartThread(void (*entry)()) {
  pthread_t thread{};
  if (pthread_create(&thread, nullptr, RunEntry, reinterpret_cast<void*>(entry)) != 0) return 0;
  pthread_detach(thread);
  return kStarted;
}

void CloseThreadHandle(ThreadHandle) {}

}  // namespace velmora::platform
