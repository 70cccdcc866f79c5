#include "platform/posix/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace velmora::platform {

void FillStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    // open() returns the lowest free number.
    if (fcntl(descriptor, F_GETFD) == -1) static_cast<void>(!open("/dev/null", O_RDWR));
  }
}

}  // namespace velmora::platform
