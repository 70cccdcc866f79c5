// Stands between a patcher and the C library: the linker's --wrap=NAME sends the program's calls of
// NAME to __wrap_NAME, and those of __real_NAME to the library. Lets the operation that the plan
// names fail, or kills the process at it.
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "support/faults.h"

namespace velmora::test {
namespace {

constexpr std::size_t kBigBlock = 4096;

FaultPlan* MapPlan() {
  const char* const path = std::getenv(kFaultPlan);
  if (path == nullptr) return nullptr;
  const int file = open(path, O_RDWR | O_CLOEXEC);
  void* const map = mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  return map == MAP_FAILED ? nullptr : static_cast<FaultPlan*>(map);
}

FaultPlan* const plan = MapPlan();  // null up to here, so that these calls aren't counted

bool Counts(std::string_view operation) {
  static constexpr std::string_view kChanges[] = {"create", "write",     "unlink", "rmdir",
                                                  "mkdir",  "ftruncate", "chmod",  "rename"};
  const std::string_view wanted = plan->operation;
  return wanted == operation || (wanted == "open" && operation == "create") ||
         (wanted == "change" && std::ranges::find(kChanges, operation) != std::end(kChanges));
}

[[noreturn]] void Kill() {
  kill(getpid(), SIGKILL);
  for (;;) pause();
}

// Counts an operation and returns what is to happen to it; an error is in errno, too.
int Meet(const char* operation, const char* object) {
  if (plan == nullptr || !Counts(operation)) return kNoFault;
  const bool isLog = std::string_view(object).ends_with("session.log");
  if (isLog && ++plan->logged % plan->logStride != 0) return kNoFault;
  if (++plan->counted != plan->number) return kNoFault;
  std::snprintf(plan->struckOperation, sizeof plan->struckOperation, "%s %s", operation, object);
  plan->struck = 1;
  if (plan->effect == kKill) Kill();
  if (plan->effect > 0) errno = plan->effect;
  return plan->effect;
}

int Meet(const char* operation, int file) {
  char link[40];
  char path[200] = {};
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
  const bool isOurs = plan != nullptr && readlink(link, path, sizeof path - 1) > 0 &&
                      std::string_view(path).starts_with(plan->folder);
  return isOurs ? Meet(operation, path) : kNoFault;
}

bool Fails(const char* operation, int file) { return Meet(operation, file) > 0; }

bool Fails(const char* operation, const char* path) {
  const bool isOurs =
      plan != nullptr && (*path != '/' || std::string_view(path).starts_with(plan->folder));
  return isOurs && Meet(operation, path) > 0;
}

bool FailsBlock(std::size_t size, const char* function) {
  return size >= kBigBlock && Meet("memory", function) > 0;
}

}  // namespace
}  // namespace velmora::test

using namespace velmora::test;

#define WRAPPED(result, name, ...)   \
  result __real_##name(__VA_ARGS__); \
  result __wrap_##name(__VA_ARGS__)

// A function that returns -1 when its operation, on the object given, has to fail.
#define FAILING(name, operation, object, parameters, arguments) \
  int __real_##name parameters;                                 \
  int __wrap_##name parameters { return Fails(operation, object) ? -1 : __real_##name arguments; }

extern "C" {

FAILING(access, "status", path, (const char* path, int mode), (path, mode))
FAILING(chmod, "chmod", path, (const char* path, mode_t mode), (path, mode))
FAILING(execv, "exec", path, (const char* path, char* const* words), (path, words))
FAILING(fstat, "status", file, (int file, struct stat* status), (file, status))
FAILING(ftruncate, "ftruncate", file, (int file, off_t size), (file, size))
FAILING(lstat, "status", path, (const char* path, struct stat* status), (path, status))
FAILING(mkdir, "mkdir", path, (const char* path, mode_t mode), (path, mode))
FAILING(rename, "rename", to, (const char* from, const char* to), (from, to))
FAILING(rmdir, "rmdir", path, (const char* path), (path))
FAILING(stat, "status", path, (const char* path, struct stat* status), (path, status))
FAILING(unlink, "unlink", path, (const char* path), (path))

WRAPPED(int, open, const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  const bool changes = (flags & (O_CREAT | O_TRUNC)) != 0;
  return Fails(changes ? "create" : "open", path) ? -1 : __real_open(path, flags, mode);
}

WRAPPED(DIR*, opendir, const char* path) {
  return Fails("open", path) ? nullptr : __real_opendir(path);
}

WRAPPED(ssize_t, read, int file, void* data, std::size_t size) {
  const int effect = Meet("read", file);
  return effect > 0 ? -1 : __real_read(file, data, effect == kHalf ? (size + 1) / 2 : size);
}

WRAPPED(ssize_t, write, int file, const void* data, std::size_t size) {
  const int effect = Meet("write", file);
  if (effect > 0) return -1;
  if (effect == kNoFault) return __real_write(file, data, size);
  const ssize_t taken = __real_write(file, data, (size + 1) / 2);
  if (effect == kKillHalf) Kill();
  return taken;
}

WRAPPED(int, close, int file) {
  const int error = Meet("close", file);
  const int result = __real_close(file);
  if (error <= 0) return result;
  errno = error;
  return -1;
}

WRAPPED(void*, malloc, std::size_t size) {
  return FailsBlock(size, "malloc") ? nullptr : __real_malloc(size);
}

WRAPPED(void*, calloc, std::size_t count, std::size_t size) {
  return FailsBlock(count * size, "calloc") ? nullptr : __real_calloc(count, size);
}

WRAPPED(int, pthread_create, pthread_t* thread, const pthread_attr_t* attributes,
        void* (*entry)(void*), void* argument) {
  const int error = Meet("thread", "pthread_create");
  return error > 0 ? error : __real_pthread_create(thread, attributes, entry, argument);
}

}  // extern "C"
