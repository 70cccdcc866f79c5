#include "platform/posix/terminal/output.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace velmora::platform::terminal {

bool Output::WriteReady(int descriptor) { return Write(descriptor, -1, 0); }

bool Output::WriteAll(int descriptor, int interrupt) { return Write(descriptor, interrupt, -1); }

bool Output::Write(int descriptor, int interrupt, int timeout) {
  while (written_ < pending_.size()) {
    pollfd waited[] = {{descriptor, POLLOUT, 0}, {interrupt, POLLIN, 0}};
    const int ready = poll(waited, 2, timeout);
    if (ready < 0) continue;  // a signal: `interrupt` is readable now
    if (waited[0].revents == 0) return false;
    WriteSome(descriptor);
  }
  pending_.clear();
  written_ = 0;
  return true;
}

void Output::WriteSome(int descriptor) {
  // A pipe that is ready takes this much without blocking.
  const std::size_t size = std::min<std::size_t>(pending_.size() - written_, PIPE_BUF);
  const ssize_t count = write(descriptor, pending_.data() + written_, size);
  const bool isTemporary = count < 0 && (errno == EINTR || errno == EAGAIN);
  if (isTemporary) return;
  written_ = count < 0 ? pending_.size() : written_ + static_cast<std::size_t>(count);
}

}  // namespace velmora::platform::terminal
