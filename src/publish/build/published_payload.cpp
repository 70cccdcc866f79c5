#include "publish/build/published_payload.h"

#include <system_error>

#include "engine/reference_list.h"
#include "platform/disk.h"
#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/common/sized_reader.h"

namespace velmora::publish {

namespace fs = std::filesystem;

fs::path PayloadPlace(const FileRecord& record) {
  fs::path place = platform::PathOfListText(ServedPath(record.path)).lexically_normal();
  if (record.compressed) place += kCompressedMark;
  return place;
}

bool HasSizeOfPayload(const fs::path& file, const FileRecord& record) {
  std::error_code error;
  if (platform::EntryKind(file, error) != fs::file_type::regular) return false;
  const std::uintmax_t size = fs::file_size(file, error);
  const auto listed = ListedSize(record.transferSize);
  return !error && listed && static_cast<std::uintmax_t>(*listed) == size;
}

bool IsPayload(const fs::path& file, const FileRecord& record,
               const std::function<void()>& checkStop) {
  const auto kind = ListedHash(record.transferHash);
  if (!kind || !HasSizeOfPayload(file, record)) return false;
  checkStop();
  try {
    return DigestOfFile(file, ByteCount(record.transferSize), *kind, [] {}) == record.transferHash;
  } catch (const PublishError&) {
    return false;
  }
}

bool LinkOrCopy(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::create_hard_link(from, to, error);
  // Another file system, one without hard links, or a file with too many of them.
  return !error || (fs::copy_file(from, to, error) && !error);
}

}  // namespace velmora::publish
