// Apart from the other operations of files.h: std::filesystem would triple the size of the patcher,
// which doesn't flush directories.
#include <filesystem>
#include <system_error>
#include <vector>

#include "platform/disk.h"
#include "platform/files.h"
#include "platform/win32/flush.h"

namespace velmora::platform {

namespace {

// An empty file, such as a lock, has nothing to flush.
bool FlushContents(const std::filesystem::path& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, kShareAll, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  std::error_code ignored;
  if (file == INVALID_HANDLE_VALUE) {
    const DWORD reason = GetLastError();
    return std::filesystem::file_size(path, ignored) == 0 || Fail(reason);
  }
  const bool flushed = FlushHandle(file);
  CloseHandle(file);
  return flushed;
}

}  // namespace

// Renames need no flushing: the file system's journal keeps their order.
bool FlushDirectory(const std::filesystem::path& directory) {
  // No name at all would be the root of the drive.
  if (directory.empty()) return Fail(ERROR_PATH_NOT_FOUND);
  std::error_code error;
  const std::vector<FolderEntry> entries = ListFolder(directory, error);
  if (error) return Fail(static_cast<DWORD>(error.value()));
  bool result = true;
  for (const FolderEntry& entry : entries) {
    if (entry.kind == std::filesystem::file_type::regular && !FlushContents(entry.path)) {
      result = false;
    }
  }
  return result;
}

}  // namespace velmora::platform
