#include "platform/console.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace velmora::platform {

namespace {

void (*stopFunction)() = nullptr;
std::atomic<bool> isReaderGone = false;
static_assert(std::atomic<bool>::is_always_lock_free);

}  // namespace

std::vector<std::string> CommandLineArguments(int count, char** arguments) {
  return {arguments + (count > 0 ? 1 : 0), arguments + count};
}

void PrepareStandardStreams() {
  std::FILE* file = nullptr;
  do {
    file = std::fopen("/dev/null", "r");
  } while (file != nullptr && fileno(file) <= STDERR_FILENO);
  if (file != nullptr) std::fclose(file);
}

void CallWhenAskedToStop(void (*stop)()) {
  stopFunction = stop;
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
    // nohup wants the tool to go on when its terminal is gone.
    const bool isIgnored = std::signal(number, SIG_IGN) == SIG_IGN;
    if (number == SIGHUP && isIgnored) continue;
    std::signal(number, [](int caught) {
      stopFunction();
      std::signal(caught, SIG_DFL);
    });
  }
  // The work goes on although nobody reads the output: its result is what counts.
  std::signal(SIGPIPE, [](int) { isReaderGone = true; });
}

bool IsErrorStreamATerminal() { return isatty(STDERR_FILENO) == 1; }

OutputEnd EndOutput() {
  const bool hadFailed = std::ferror(stdout) != 0;
  errno = 0;
  const bool isWritten = std::fflush(stdout) == 0 && close(STDOUT_FILENO) == 0;
  return {isWritten && !hadFailed, isReaderGone, errno == 0 ? "" : std::strerror(errno)};
}

}  // namespace velmora::platform
