// One entry of the reference list: a file that must exist in a given state, or something to remove.
// A value type. All texts are as in the list; sizes stay decimal text until they are used.
#pragma once

#include <string>

namespace velmora {

struct FileRecord {
  // Relative to the working directory, with backslashes between directories. In a removal: the path
  // or the wildcard pattern to remove.
  std::string path;
  // Hash text of the bytes that the server delivers. In a removal: its mode, where a leading 'R'
  // means a pattern; the remaining fields are then empty.
  std::string transferHash;
  // Size in bytes of what the server delivers.
  std::string transferSize;
  // Hash text and size in bytes of the file on disk.
  std::string contentHash;
  std::string contentSize;
  // The server has the file as a zlib stream (RFC 1950) under `path` plus ".compressed".
  bool compressed = false;

  bool operator==(const FileRecord&) const = default;
};

}  // namespace velmora
