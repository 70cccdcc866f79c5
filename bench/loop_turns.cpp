// Preloaded into the desktop program, to see whether its window ever stands still: measures each
// turn of the main thread's loop, from the end of one wait to the beginning of the next. Whenever a
// turn is longer than all before it, its milliseconds become a line of the file that LOOP_TURNS
// names.
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

double Milliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double begin = 0;  // of this turn; 0 before the first wait
double longest = 0;

// The browser's processes are preloaded, too.
bool IsPatcher() {
  return std::string_view(program_invocation_short_name).ends_with("VelmoraUpdate.exe");
}

// Other libraries wait in the middle of a turn, for the display's answers.
bool IsGlib(const void* caller) {
  Dl_info info{};
  return dladdr(caller, &info) != 0 &&
         std::string_view(info.dli_fname).find("/libglib-") != std::string_view::npos;
}

void EndTurn() {
  if (begin == 0) return;
  const double length = Milliseconds() - begin;
  if (length <= longest) return;
  longest = length;
  const char* const name = std::getenv("LOOP_TURNS");
  FILE* const file = name == nullptr ? nullptr : std::fopen(name, "a");
  if (file == nullptr) return;
  std::fprintf(file, "%.1f\n", longest);
  std::fclose(file);
}

}  // namespace

// In place of the C library's.
extern "C" int poll(pollfd* waited, nfds_t count, int timeout) {
  using Poll = int (*)(pollfd*, nfds_t, int);
  static const auto original = reinterpret_cast<Poll>(dlsym(RTLD_NEXT, "poll"));
  const bool isLoop = getpid() == gettid() && IsPatcher() && IsGlib(__builtin_return_address(0));
  if (isLoop) EndTurn();
  const int result = original(waited, count, timeout);
  if (isLoop) begin = Milliseconds();
  return result;
}
