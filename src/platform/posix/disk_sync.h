// Makes what was written survive a power failure.
#pragma once

#include <string>

namespace velmora::platform {

// Waits until everything that was written and renamed on the file system of the directory `path` is
// on its disk. On failure returns false and sets errno. Safe from any thread.
[[nodiscard]] bool SyncFileSystem(const std::string& path);

}  // namespace velmora::platform
