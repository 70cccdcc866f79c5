// The verification cache: the record of each local file from when it was last verified or
// installed. If a record equals its entry, the file is trusted without being read.
//
// Kept in the file VelmoraUpdate.cvc in the working directory, in text mode (base/text_mode.h): one
// entry per line, in the byte order of the paths, six fields with one space between them: path,
// transferHash, transferSize, contentHash, contentSize, compressed as "1" or "0". The reader
// accepts any white space between fields. The format has no quoting, so a path with a space can't
// be read back, and its file is hashed in every run.
//
// Worker thread only. Failures aren't reported, except those of setting the file aside: a damaged
// or missing cache only costs time, because files that it doesn't vouch for are hashed.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "base/arena.h"
#include "engine/file_record.h"
#include "engine/packed_record.h"

namespace velmora {

inline constexpr char kCacheFile[] = "VelmoraUpdate.cvc";
// The name of the file while it must not be trusted.
inline constexpr char kCacheFileAside[] = "_VelmoraUpdate.cvc";

// The longest line that is read, without its line end. A longer one ends the reading.
inline constexpr std::size_t kMaxCacheLine = 255;

// Map from path to packed record, in the byte order of the paths.
class VerifiedRecords {
 public:
  using Entries = std::map<std::string_view, const PackedRecord*>;

  [[nodiscard]] const PackedRecord* Find(std::string_view path) const;
  // Inserts the record unless its path has an entry.
  void TryInsert(const FileRecord& record);
  // Inserts the record, or replaces the entry of its path.
  void InsertOrAssign(const FileRecord& record);
  void Clear();
  [[nodiscard]] std::size_t Count() const { return entries_.size(); }
  [[nodiscard]] Entries::const_iterator begin() const { return entries_.begin(); }
  [[nodiscard]] Entries::const_iterator end() const { return entries_.end(); }

 private:
  struct Place {
    Entries::iterator at;  // the entry of the path, or the one that would follow it
    bool isTaken;
  };

  [[nodiscard]] Place Search(std::string_view path);
  void Insert(const Place& place, const FileRecord& record);
  [[nodiscard]] const PackedRecord* Copy(const FileRecord& record);

  Arena memory_;
  Entries entries_;  // the keys point into the records
};

extern VerifiedRecords VerifyCache;

// The line of the file for `record`, with its line feed.
[[nodiscard]] std::string CacheLine(const FileRecord& record);

// Adds the file's entries. A path that has an entry keeps it. Lines whose fields exceed what the
// format allows (63 bytes for a hash, 31 for a size, 2 for the flag) are skipped.
void LoadVerifyCache();

// Rewrites the file and empties the cache. An empty cache touches nothing.
void SaveVerifyCache();

// True when the cache holds an entry for the record's path and every other field of it equals the
// record's. Doesn't look at the disk.
[[nodiscard]] bool IsVerifiedUnchanged(const FileRecord& record);

// Inserts the record, or replaces the entry of its path.
void RememberVerified(const FileRecord& record);

// Whether the cache has an entry for the path, equal or not.
[[nodiscard]] bool HasVerifiedEntry(const std::string& path);

// Replaces the entry of a file that was just damaged, if it has one, by one that equals no record.
void DistrustFile(const std::string& path);

// While a file that has an entry is written in place, the cache's file has another name: if the
// process or the machine stops meanwhile, nothing vouches for any file. Both return true when the
// cache's file has the right name or doesn't exist. After a failure it has its former name.
[[nodiscard]] bool SetCacheFileAside();
[[nodiscard]] bool BringCacheFileBack();
void DiscardCacheFileAside();

}  // namespace velmora
