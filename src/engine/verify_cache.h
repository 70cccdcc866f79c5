// The verification cache: what the reference list said of each local file when it was last found or
// made good. A record that equals its entry is believed without reading the file.
//
// Kept in the file VelmoraUpdate.cvc in the working directory, in text mode (base/text_mode.h): one
// entry a line, in the byte order of the paths, six fields with one space between them: path,
// transferHash, transferSize, contentHash, contentSize, compressed as "1" or "0". The reader takes
// any white space between fields. The format has no quoting, so a path with a space doesn't come
// back: its file is hashed at every run.
//
// Worker thread only. No failure is reported but those of setting the file aside: a damaged or
// missing file costs hashing and nothing else, since what the cache doesn't vouch for is read in
// full.
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
// Where the file is kept while it must not be believed.
inline constexpr char kCacheFileAside[] = "_VelmoraUpdate.cvc";

// The longest line that is read, line end not counted. A longer one ends the reading.
inline constexpr std::size_t kMaxCacheLine = 255;

// Map from path to record, in the byte order of the paths. Its records stay packed.
class VerifiedRecords {
 public:
  using Entries = std::map<std::string_view, const PackedRecord*>;

  [[nodiscard]] const PackedRecord* Find(std::string_view path) const;
  // Enters the record unless its path has an entry.
  void TryInsert(const FileRecord& record);
  // Enters the record, or replaces the entry of its path.
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
  Entries entries_;  // whose keys are the records' own paths
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

// Whether the cache holds an entry for the path, whatever it says.
[[nodiscard]] bool HasVerifiedEntry(const std::string& path);

// Refreshes the entry of a file that was just damaged, if it has one, so that no record equals it.
void DistrustFile(const std::string& path);

// While a file that has an entry is written in place, the cache's file is kept under another name:
// should the process or the machine end meanwhile, nothing vouches for any file. Both are true when
// it is where it belongs, or if there is none; a failure leaves it where it was.
[[nodiscard]] bool SetCacheFileAside();
[[nodiscard]] bool BringCacheFileBack();
void DiscardCacheFileAside();

}  // namespace velmora
