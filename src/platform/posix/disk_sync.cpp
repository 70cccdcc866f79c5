#include "platform/posix/disk_sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace velmora::platform {

bool SyncFileSystem(const std::string& path) {
  const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return false;
  const bool synced = syncfs(directory) == 0;
  const int reason = errno;
  close(directory);
  errno = reason;
  return synced;
}

}  // namespace velmora::platform
