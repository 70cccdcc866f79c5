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
#include <map>
#include <string>

#include "engine/file_record.h"

namespace velmora {

inline constexpr char kCacheFile[] = "VelmoraUpdate.cvc";

// The longest line that is read, line end not counted. A longer one ends the reading.
inline constexpr std::size_t kMaxCacheLine = 255;

extern std::map<std::string, FileRecord> VerifyCache;

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
