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
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/arena.h"
#include "engine/file_record.h"
#include "engine/packed_record.h"

namespace velmora {

inline constexpr char kCacheFile[] = "VelmoraUpdate.cvc";
// Where the file is kept while it must not be believed.
inline constexpr char kCacheFileAside[] = "_VelmoraUpdate.cvc";

// The longest line that is read, line end not counted. A longer one ends the reading.
inline constexpr std::size_t kMaxCacheLine = 255;

// Map from path to record, ordered by the bytes of the paths. Entries stand in the order of their
// coming, which is that of the file for those that were loaded, and are found by a table of hashes
// (open addressing, linear probing); they are put into their order when the file is written.
class VerifiedRecords {
 public:
  [[nodiscard]] const PackedRecord* Find(std::string_view path) const;
  // Keeps the entry that the path has, if it has one.
  void Add(const FileRecord& record);
  // Replaces it.
  void Put(const FileRecord& record);
  void Clear();
  [[nodiscard]] std::size_t Count() const { return entries_.size(); }
  [[nodiscard]] std::vector<const PackedRecord*> InOrder() const;

 private:
  struct Slot {
    std::uint32_t hash;
    std::uint32_t place;  // in entries_, from 1; 0: no entry came here yet
  };

  [[nodiscard]] const PackedRecord*& EntryOf(const Slot& slot) { return entries_[slot.place - 1]; }
  [[nodiscard]] std::size_t SlotOf(std::string_view path, std::uint32_t hash) const;
  [[nodiscard]] const PackedRecord* Copy(const FileRecord& record);
  void Enter(const FileRecord& record, std::uint32_t hash, std::size_t slot);
  void Grow();

  Arena memory_;
  std::vector<const PackedRecord*> entries_;
  std::vector<Slot> slots_;  // a power of two, at most half of them taken
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

// Refreshes the entry of a file that was just spoilt, if it has one, so that no record equals it.
void DistrustFile(const std::string& path);

// While a file that has an entry is written in place, the cache's file stands aside: should the
// process or the machine end meanwhile, nothing vouches for any file. False if it can't be put
// aside; it then stands where it was.
[[nodiscard]] bool SetCacheFileAside();
void BringCacheFileBack();
void DiscardCacheFileAside();

}  // namespace velmora
