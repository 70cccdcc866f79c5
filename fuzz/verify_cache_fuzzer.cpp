// Any bytes as the cache's file: what it vouches for, and what comes back once it was saved.
#include <cstdlib>
#include <sstream>

#include "base/text_mode.h"
#include "engine/verify_cache.h"
#include "harness.h"

namespace velmora::fuzz {
namespace {

using ByPath = std::map<std::string, FileRecord>;

// The file as a reader without the program's parts sees it.
ByPath NaiveReading(std::string_view bytes) {
  ByPath records;
  bytes = bytes.substr(0, bytes.find('\x1A'));
  while (!bytes.empty()) {
    const bool hasEnd = bytes.find('\n') != std::string_view::npos;
    std::string line(TakeLine(bytes));
    if (hasEnd && line.ends_with('\r')) line.pop_back();
    if (line.size() > 255) break;
    std::istringstream words(line.substr(0, line.find('\0')));
    std::string fields[6];
    for (std::string& field : fields) words >> field;
    const bool fits = fields[1].size() <= 63 && fields[2].size() <= 31 && fields[3].size() <= 63 &&
                      fields[4].size() <= 31 && fields[5].size() <= 2;
    if (fields[0].empty() || !fits) continue;
    const bool compressed = std::strtol(fields[5].c_str(), nullptr, 10) != 0;
    records.try_emplace(
        fields[0], FileRecord{fields[0], fields[1], fields[2], fields[3], fields[4], compressed});
  }
  return records;
}

void CheckVouched(const FileRecord& record, bool isVouched) {
  Require(IsVerifiedUnchanged(record) == isVouched, "what the file says is believed, nothing else",
          CacheLine(record));
}

// Each entry is believed, and nothing near it in its place.
void CheckLoaded(const ByPath& records) {
  Require(VerifyCache.Count() == records.size(), "as many entries as the file has");
  for (const auto& [path, record] : records) {
    CheckVouched(record, true);
    for (std::string FileRecord::*const field :
         {&FileRecord::transferHash, &FileRecord::transferSize, &FileRecord::contentHash,
          &FileRecord::contentSize}) {
      FileRecord other = record;
      other.*field += 'x';
      CheckVouched(other, false);
    }
    FileRecord other = record;
    other.compressed = !record.compressed;
    CheckVouched(other, false);
    other = record;
    other.path += '0';
    if (!records.contains(other.path)) CheckVouched(other, false);
  }
}

void CheckSaved(const ByPath& records) {
  SaveVerifyCache();
  Require(VerifyCache.Count() == 0, "saving empties the cache");
  if (records.empty()) return;
  const auto saved = ReadFile(kCacheFile);
  std::string expected;
  for (const auto& [path, record] : records) {
    expected += EncodeTextMode(CacheLine(record));
  }
  Require(saved == expected, "entries are saved in the byte order of their paths", expected);
}

}  // namespace

void CheckInput(std::string_view bytes) {
  EnterEmptyFolder();
  WriteFile(kCacheFile, bytes);
  VerifyCache.Clear();
  LoadVerifyCache();
  const ByPath records = NaiveReading(bytes);
  CheckLoaded(records);
  CheckSaved(records);
  VerifyCache.Clear();
}

}  // namespace velmora::fuzz
