#include "platform/folder_link.h"

#include "platform/disk.h"
#include "platform/files.h"

namespace velmora::platform {

namespace fs = std::filesystem;

fs::path LinkTarget(const fs::path& link, std::error_code& error) {
  return fs::read_symlink(link, error);
}

// The new link is made beside the old one and moved over it.
void PointLink(const fs::path& link, const fs::path& folder, std::error_code& error) {
  fs::path made = link;
  made += ".switching";
  if (EntryKind(made) == fs::file_type::symlink) fs::remove(made, error);  // of a killed process
  fs::create_directory_symlink(folder.lexically_relative(link.parent_path()), made, error);
  if (error) return;
  fs::rename(made, link, error);
  std::error_code ignored;
  if (error) {
    fs::remove(made, ignored);
  } else if (!FlushDirectory(link.parent_path())) {
    error = {LastSystemError(), std::system_category()};
  }
}

}  // namespace velmora::platform
