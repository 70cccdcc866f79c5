// The verification cache: what the reference list said of each local file when it was last found or
// made good. A record that equals its entry is believed without reading the file.
//
// Kept in the file VelmoraUpdate.cvc in the working directory, in text mode (base/text_mode.h): one
// entry a line, in the byte order of the paths, six fields with one blank between them: path,
// transferHash, transferSize, contentHash, contentSize, compressed as "1" or "0". The reader takes
// any white space between fields. The format has no quoting, so a path with a blank doesn't come
// back: its file is hashed at every run.
//
// Worker thread only. No failure is reported: a damaged or missing file costs hashing and nothing
// else, since what the cache doesn't vouch for is read in full.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "base/arena.h"
#include "engine/file_record.h"
#include "engine/packed_record.h"

namespace velmora {

inline constexpr char kCacheFile[] = "VelmoraUpdate.cvc";

// The longest line that is read, line end not counted. A longer one ends the reading.
inline constexpr std::size_t kMaxCacheLine = 255;

// Map from path to record, ordered by the bytes of the paths: entries are found by a hash of their
// path, and put into their order when the file is written.
class VerifiedRecords {
 public:
  [[nodiscard]] const PackedRecord* Find(std::string_view path) const;
  // Keeps the entry that the path has, if it has one.
  void Add(const FileRecord& record);
  // Replaces it.
  void Put(const FileRecord& record);
  void Erase(std::string_view path);
  void Clear();
  [[nodiscard]] std::size_t Count() const { return records_.size(); }
  [[nodiscard]] std::vector<const PackedRecord*> InOrder() const;

 private:
  static std::string_view PathOf(std::string_view path) { return path; }
  static std::string_view PathOf(const PackedRecord* record) { return record->path(); }

  struct HashOfPath {
    using is_transparent = void;
    std::size_t operator()(const auto& entry) const {
      return std::hash<std::string_view>()(PathOf(entry));
    }
  };
  struct SamePath {
    using is_transparent = void;
    bool operator()(const auto& a, const auto& b) const { return PathOf(a) == PathOf(b); }
  };

  const PackedRecord* Copy(const FileRecord& record);

  Arena memory_;
  std::unordered_set<const PackedRecord*, HashOfPath, SamePath> records_;
};

extern VerifiedRecords VerifyCache;

// The line of the file that stands for `record`, with a line feed for its end.
[[nodiscard]] std::string CacheLine(const FileRecord& record);

// Adds the file's entries. A path that has an entry keeps it. Lines whose fields exceed what the
// format allows (63 bytes for a hash, 31 for a size, 2 for the flag) are passed over.
void LoadVerifyCache();

// Rewrites the file and empties the cache. An empty cache touches nothing.
void SaveVerifyCache();

// True when the cache holds an entry for the record's path and every other field of it equals the
// record's. Doesn't look at the disk.
[[nodiscard]] bool IsVerifiedUnchanged(const FileRecord& record);

// Enters the record, or refreshes the entry of its path.
void RememberVerified(const FileRecord& record);

// Takes back what is remembered of the record's path, for a file that was just spoilt.
void ForgetVerified(const FileRecord& record);

}  // namespace velmora
