// One entry of the reference list: a file that must exist in a given state, or one thing that must
// go. A value type; all text is as the list gives it, and sizes stay decimal text until use.
#pragma once

#include <string>

namespace velmora {

struct FileRecord {
  // Relative to the working directory, directories separated by backslashes. Of a removal: the path
  // or the wildcard pattern to remove.
  std::string path;
  // Hash text of the bytes as the server delivers them. Of a removal: its mode, which is a pattern
  // removal if it begins with 'R'; the fields behind it are then empty.
  std::string transferHash;
  // Size in bytes of what the server delivers.
  std::string transferSize;
  // Hash text and size in bytes of the file as stored on disk.
  std::string contentHash;
  std::string contentSize;
  // The server holds the file as a zlib stream (RFC 1950) under `path` plus ".compressed".
  bool compressed = false;

  bool operator==(const FileRecord&) const = default;
};

}  // namespace velmora
