#include "platform/disk.h"

namespace velmora::platform {

namespace fs = std::filesystem;

namespace {

// As the folder itself tells it, mostly without another question to the system.
fs::file_type KindOf(const fs::directory_entry& entry) {
  std::error_code ignored;
  if (entry.is_symlink(ignored)) return fs::file_type::symlink;
  if (entry.is_directory(ignored)) return fs::file_type::directory;
  return entry.is_regular_file(ignored) ? fs::file_type::regular : fs::file_type::unknown;
}

}  // namespace

bool AreNamesUnicode() { return false; }

std::string TextOf(const fs::path& path) { return path.native(); }

fs::path PathOf(std::string_view text) { return text; }

fs::path PathOfListText(std::string_view text) { return text; }

std::string ListTextOf(const fs::path& path) { return path.native(); }

std::string NameKey(const fs::path& path) { return path.native(); }

std::string ByteNameOf(const fs::path& path) { return path.native(); }

std::vector<FolderEntry> ListFolder(const fs::path& folder, std::error_code& error) {
  std::vector<FolderEntry> entries;
  fs::directory_iterator at(folder, error);
  for (; !error && at != fs::end(at); at.increment(error)) {
    entries.push_back({at->path(), KindOf(*at)});
  }
  return entries;
}

std::string ErrorText(const std::error_code& error) { return error.message(); }

}  // namespace velmora::platform
