// Preloaded into the desktop program, to see whether its window ever stands still: measures each
// turn of the main thread's loop, from the end of one wait to the beginning of the next. The result
// goes to the file that LOOP_TURNS names, whenever a turn is longer than all before it.
#include <dlfcn.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

double Milliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double begin = 0;  // of this turn; 0 before the first wait
double longest = 0;
long turns = 0;
long slow = 0;  // longer than a frame of a display at 60 Hz

void EndTurn() {
  if (begin == 0) return;
  const double length = Milliseconds() - begin;
  ++turns;
  if (length > 1000.0 / 60) ++slow;
  if (length <= longest) return;
  longest = length;
  const char* const name = std::getenv("LOOP_TURNS");
  FILE* const file = name == nullptr ? nullptr : std::fopen(name, "w");
  if (file == nullptr) return;
  std::fprintf(file, "%.1f %ld %ld\n", longest, slow, turns);
  std::fclose(file);
}

}  // namespace

// In place of the C library's.
extern "C" int poll(pollfd* waited, nfds_t count, int timeout) {
  using Poll = int (*)(pollfd*, nfds_t, int);
  static const auto original = reinterpret_cast<Poll>(dlsym(RTLD_NEXT, "poll"));
  const bool isMain = getpid() == gettid();
  if (isMain) EndTurn();
  const int result = original(waited, count, timeout);
  if (isMain) begin = Milliseconds();
  return result;
}
