// That what was written survives a power cut.
#pragma once

#include <string>

namespace velmora::platform {

// Waits until all that was written and renamed on the file system of the directory `path` is on its
// disk. False if it can't be; errno says why. Any thread.
[[nodiscard]] bool SyncFileSystem(const std::string& path);

}  // namespace velmora::platform
