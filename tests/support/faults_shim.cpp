// Loaded in front of the C library: lets the operation that the plan names fail, or kills the
// process at it. What it needs itself it asks of the kernel, so that it never meets its own
// functions.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "support/faults.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
}

namespace velmora::test {
namespace {

constexpr std::size_t kBigBlock = 4096;

enum class Effect { kNone, kError, kHalf, kFull, kKill, kKillHalf };

// The plan. There is none until the report is mapped.
FaultReport* report = nullptr;
std::string_view operation;
std::string_view folder;
Effect effect = Effect::kNone;
int errorCode = 0;
std::uint32_t number = 0;
std::uint32_t logStride = 1;

// Descriptors of the folder's files.
std::array<std::atomic<bool>, 1024> ours{};

// Where the program itself stands in memory, without its libraries.
std::uintptr_t programStart = 0;
std::uintptr_t programEnd = 0;

bool IsOurs(int file) { return file >= 0 && file < 1024 && ours[static_cast<std::size_t>(file)]; }
bool IsInFolder(std::string_view path) {
  return report != nullptr && (!path.starts_with('/') || path.starts_with(folder));
}

bool IsProgram(const void* caller) {
  const auto address = reinterpret_cast<std::uintptr_t>(caller);
  return report != nullptr && address >= programStart && address < programEnd;
}

bool ChangesDisk(std::string_view name) {
  static constexpr std::string_view kChanges[] = {"create", "write",     "unlink", "rmdir",
                                                  "mkdir",  "ftruncate", "chmod",  "rename"};
  return std::find(std::begin(kChanges), std::end(kChanges), name) != std::end(kChanges);
}

[[noreturn]] void Kill() {
  kill(getpid(), SIGKILL);
  for (;;) pause();
}

void Report(std::string_view name, const char* object) {
  std::snprintf(report->operation, sizeof report->operation, "%.*s %s",
                static_cast<int>(name.size()), name.data(), object);
  report->struck = 1;
}

// Counts an operation, and gives what is to happen to it.
Effect Meet(std::string_view name, const char* object) {
  const bool counts = operation == name || (operation == "change" && ChangesDisk(name)) ||
                      (operation == "open" && name == "create");
  if (report == nullptr || !counts) return Effect::kNone;
  if (std::string_view(object).ends_with("session.log") && ++report->logged % logStride != 0 &&
      effect != Effect::kFull) {
    return Effect::kNone;
  }
  const std::uint32_t count = ++report->counted;
  if (effect == Effect::kFull && count > number && report->struck != 0) {
    errno = ENOSPC;
    return Effect::kError;
  }
  if (count != number) return Effect::kNone;
  Report(name, object);
  if (effect == Effect::kKill) Kill();
  errno = errorCode;
  return effect;
}

// The same for an operation on a descriptor.
Effect Meet(std::string_view name, int file) {
  char link[40];
  char object[200] = {};
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
  syscall(SYS_readlink, link, object, sizeof object - 1);
  return Meet(name, object);
}

bool Fails(std::string_view name, const char* path) {
  return IsInFolder(path) && Meet(name, path) == Effect::kError;
}

int Open(int directory, const char* path, int flags, mode_t mode) {
  const bool counts = IsInFolder(path);
  const bool changes = (flags & (O_CREAT | O_TRUNC)) != 0;
  if (counts && Meet(changes ? "create" : "open", path) == Effect::kError) return -1;
  const int file = static_cast<int>(syscall(SYS_openat, directory, path, flags, mode));
  if (file >= 0 && file < 1024) ours[static_cast<std::size_t>(file)] = counts;
  return file;
}

int NoteProgram(dl_phdr_info* info, std::size_t, void*) {
  programStart = UINTPTR_MAX;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type != PT_LOAD) continue;
    const std::uintptr_t start = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr;
    programStart = std::min(programStart, start);
    programEnd = std::max(programEnd, start + info->dlpi_phdr[i].p_memsz);
  }
  return 1;  // the first one is the program
}

Effect ReadEffect(std::string_view text) {
  static constexpr std::pair<std::string_view, Effect> kEffects[] = {
      {"half", Effect::kHalf},
      {"full", Effect::kFull},
      {"kill", Effect::kKill},
      {"kill-half", Effect::kKillHalf}};
  for (const auto& [name, kind] : kEffects) {
    if (name == text) return kind;
  }
  return Effect::kError;
}

const char* Variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

__attribute__((constructor)) void TakePlan() {
  operation = Variable(kFaultOperation);
  folder = Variable(kFaultFolder);
  effect = ReadEffect(Variable(kFaultEffect));
  errorCode = std::atoi(Variable(kFaultEffect));
  number = static_cast<std::uint32_t>(std::atoi(Variable(kFaultNumber)));
  logStride = std::max(1U, static_cast<std::uint32_t>(std::atoi(Variable(kFaultLogStride))));
  dl_iterate_phdr(NoteProgram, nullptr);
  const auto file =
      static_cast<int>(syscall(SYS_openat, AT_FDCWD, Variable(kFaultReport), O_RDWR | O_CLOEXEC));
  if (file < 0) return;
  void* const map = reinterpret_cast<void*>(
      syscall(SYS_mmap, nullptr, sizeof(FaultReport), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
  syscall(SYS_close, file);
  if (map != MAP_FAILED) report = static_cast<FaultReport*>(map);
}

}  // namespace
}  // namespace velmora::test

using velmora::test::Effect;
using velmora::test::Fails;
using velmora::test::IsOurs;
using velmora::test::Meet;

extern "C" {

int openat(int directory, const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return velmora::test::Open(directory, path, flags, mode);
}

int open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return velmora::test::Open(AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) __attribute__((alias("open")));
int openat64(int directory, const char* path, int flags, ...) __attribute__((alias("openat")));

DIR* opendir(const char* path) {
  static const auto real = reinterpret_cast<DIR* (*)(const char*)>(dlsym(RTLD_NEXT, "opendir"));
  return Fails("open", path) ? nullptr : real(path);
}

ssize_t read(int file, void* data, std::size_t size) {
  const Effect effect = IsOurs(file) ? Meet("read", file) : Effect::kNone;
  if (effect == Effect::kError) return -1;
  return syscall(SYS_read, file, data, effect == Effect::kHalf ? (size + 1) / 2 : size);
}

ssize_t write(int file, const void* data, std::size_t size) {
  const Effect effect = IsOurs(file) ? Meet("write", file) : Effect::kNone;
  if (effect == Effect::kError) return -1;
  if (effect == Effect::kNone) return syscall(SYS_write, file, data, size);
  const ssize_t taken = syscall(SYS_write, file, data, (size + 1) / 2);
  if (effect == Effect::kKillHalf) velmora::test::Kill();
  return taken;
}

int close(int file) {
  const bool fails = IsOurs(file) && Meet("close", file) == Effect::kError;
  if (IsOurs(file)) velmora::test::ours[static_cast<std::size_t>(file)] = false;
  const int error = errno;
  const auto result = static_cast<int>(syscall(SYS_close, file));
  if (!fails) return result;
  errno = error;
  return -1;
}

int unlink(const char* path) {
  return Fails("unlink", path) ? -1 : static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

int rmdir(const char* path) {
  if (Fails("rmdir", path)) return -1;
  return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR));
}

int mkdir(const char* path, mode_t mode) {
  return Fails("mkdir", path) ? -1 : static_cast<int>(syscall(SYS_mkdirat, AT_FDCWD, path, mode));
}

int rename(const char* from, const char* to) {
  if (Fails("rename", to)) return -1;
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int ftruncate(int file, off_t size) {
  if (IsOurs(file) && Meet("ftruncate", file) == Effect::kError) return -1;
  return static_cast<int>(syscall(SYS_ftruncate, file, size));
}

int ftruncate64(int file, off_t size) __attribute__((alias("ftruncate")));

int chmod(const char* path, mode_t mode) {
  return Fails("chmod", path) ? -1 : static_cast<int>(syscall(SYS_fchmodat, AT_FDCWD, path, mode));
}

int fchmod(int file, mode_t mode) {
  if (IsOurs(file) && Meet("chmod", file) == Effect::kError) return -1;
  return static_cast<int>(syscall(SYS_fchmod, file, mode));
}

int access(const char* path, int mode) {
  if (Fails("status", path)) return -1;
  return static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, path, mode));
}

int stat(const char* path, struct stat* status) {
  return Fails("status", path) ? -1 : fstatat(AT_FDCWD, path, status, 0);
}

int lstat(const char* path, struct stat* status) {
  return Fails("status", path) ? -1 : fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

int fstat(int file, struct stat* status) {
  if (IsOurs(file) && Meet("status", file) == Effect::kError) return -1;
  return fstatat(file, "", status, AT_EMPTY_PATH);
}

void* malloc(std::size_t size) {
  const bool counts =
      size >= velmora::test::kBigBlock && velmora::test::IsProgram(__builtin_return_address(0));
  if (counts && Meet("memory", "malloc") == Effect::kError) return nullptr;
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  const bool counts = count * size >= velmora::test::kBigBlock &&
                      velmora::test::IsProgram(__builtin_return_address(0));
  if (counts && Meet("memory", "calloc") == Effect::kError) return nullptr;
  return __libc_calloc(count, size);
}

void* mmap(void* address, std::size_t size, int protection, int flags, int file, off_t offset) {
  const bool counts = velmora::test::IsProgram(__builtin_return_address(0));
  if (counts && Meet("memory", "mmap") == Effect::kError) return MAP_FAILED;
  return reinterpret_cast<void*>(syscall(SYS_mmap, address, size, protection, flags, file, offset));
}

int execv(const char* path, char* const* arguments) {
  if (Fails("exec", path)) return -1;
  return static_cast<int>(syscall(SYS_execve, path, arguments, environ));
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) {
  static const auto real =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  if (Meet("thread", "pthread_create") == Effect::kError) return EAGAIN;
  return real(thread, attributes, entry, argument);
}

}  // extern "C"
