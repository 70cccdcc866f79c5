#include "platform/disk.h"

#include <cerrno>

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

void AllowLongPaths() {}

bool AreNamesUnicode() { return false; }

std::string TextOf(const fs::path& path) { return path.native(); }

fs::path PathOf(std::string_view text) { return text; }

fs::path PathOfListText(std::string_view text) { return text; }

std::string ListTextOf(const fs::path& path) { return path.native(); }

std::string NameKey(const fs::path& path) { return path.native(); }

std::string ByteNameOf(const fs::path& path) { return path.native(); }

fs::path AbsolutePath(const fs::path& path) { return fs::absolute(path); }

fs::path CanonicalPath(const fs::path& path) { return fs::weakly_canonical(fs::absolute(path)); }

fs::file_type EntryKind(const fs::path& path, std::error_code& error) {
  const fs::file_type kind = fs::symlink_status(path, error).type();
  if (kind == fs::file_type::not_found) error.clear();
  return kind;
}

fs::file_type EntryKind(const fs::path& path) {
  std::error_code ignored;
  return EntryKind(path, ignored);
}

std::vector<FolderEntry> ListFolder(const fs::path& folder, std::error_code& error) {
  std::vector<FolderEntry> entries;
  fs::directory_iterator at(folder, error);
  for (; !error && at != fs::end(at); at.increment(error)) {
    entries.push_back({at->path(), KindOf(*at)});
  }
  return entries;
}

void MoveEntry(const fs::path& from, const fs::path& to, std::error_code& error) {
  fs::rename(from, to, error);
}

void RemoveEntry(const fs::path& path, std::error_code& error) { fs::remove(path, error); }

void RemoveEntries(const fs::path& path, std::error_code& error) { fs::remove_all(path, error); }

void ClearStreamError() { errno = 0; }

std::error_code StreamError() { return {errno == 0 ? EIO : errno, std::generic_category()}; }

std::string ErrorText(const std::error_code& error) { return error.message(); }

}  // namespace velmora::platform
