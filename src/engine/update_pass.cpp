#include "engine/update_pass.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "base/data_block.h"
#include "base/text.h"
#include "base/texts.h"
#include "engine/download.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "engine/verify_hash.h"
#include "platform/dialog.h"
#include "platform/files.h"
#include "settings/session_log.h"

namespace velmora {
namespace {

using platform::Control;

void ShowCheck(const FileRecord& record, std::int32_t index, std::uint32_t total) {
  platform::SetStatusText(
      FormatText("%s %d / %d \n", texts::kChecking, index, static_cast<std::int32_t>(total)) +
      record.path);
}

bool ReportMissing(const FileRecord& record) {
  LogMessage("Couldn't find File : File %s will be update. \n", record.path.c_str());
  return true;
}

// A block beyond this size is freed with its record: it may be long until the next large file.
constexpr std::size_t kMaxKeptBlock = std::size_t{64} << 20;

// The content of one local file after the other. The block is kept and grows, because new memory
// for each file costs the system more than reading the file into it.
struct FileContent {
  DataBlock block;
  std::uint32_t size = 0;  // of the file, at most the block's
};

enum class LocalFile { kMissing, kTooLarge, kRead };

// Reads the file whole and closes it. A short read isn't told apart from a bad file: what is
// missing counts as zeros, and the digest decides.
LocalFile ReadLocalFile(const FileRecord& record, FileContent& content) {
  platform::InputFile file(record.path);
  if (!file.IsOpen()) return LocalFile::kMissing;
  DataBlock& block = content.block;
  content.size = file.Size();
  const bool fits = block.data() != nullptr && content.size <= block.size();
  if (!fits && !block.Allocate(content.size)) {
    LogMessage("Couldn't allocate %u bytes : File %s \n", content.size, record.path.c_str());
    return LocalFile::kTooLarge;
  }
  const std::uint32_t count = file.Read(block.data(), content.size);
  std::memset(block.data() + count, 0, content.size - count);
  return LocalFile::kRead;
}

bool NeedsUpdate(const FileRecord& record, bool isVouchedFor, FileContent& content) {
  if (isVouchedFor) return !platform::FileExists(record.path) && ReportMissing(record);
  const LocalFile local = ReadLocalFile(record, content);
  if (local == LocalFile::kMissing) return ReportMissing(record);
  if (local == LocalFile::kRead &&
      VerifyHash(content.block.data(), content.size, record.contentHash)) {
    RememberVerified(record);
    return false;
  }
  LogMessage("Unmatch HashData : File %s will be update. \n", record.path.c_str());
  return true;
}

std::int64_t TransferSize(const FileRecord& record) {
  return std::max(ToNumber(record.transferSize), 0);
}

// Bytes that come after a record that the cache doesn't vouch for. They are summed up once in a
// run, and never if the cache vouches for every record.
std::int64_t BytesAfter(FileRecordSet::Iterator it, const FileRecordSet& updateSet) {
  if (BytesAhead != kUnknownBytes) {
    return std::max<std::int64_t>(BytesAhead - TransferSize(*it), 0);
  }
  std::int64_t bytes = 0;
  while (++it != updateSet.end()) {
    const FileRecord record = *it;
    if (!IsVerifiedUnchanged(record)) bytes += TransferSize(record);
  }
  return bytes;
}

}  // namespace

bool UpdatePass(const FileRecordSet& updateSet) {
  FileContent content;
  std::int32_t index = 0;
  for (auto it = updateSet.begin(); it != updateSet.end(); ++it) {
    const FileRecord record = *it;
    if (UpdateState == kCancelAsked) return false;
    ShowCheck(record, index, updateSet.Count());
    const bool isVouchedFor = IsVerifiedUnchanged(record);
    const bool needUpdate = NeedsUpdate(record, isVouchedFor, content);
    // A download needs the memory for itself.
    if (needUpdate || content.block.size() > kMaxKeptBlock) content.block.Release();

    const std::int32_t transferSize = ToNumber(record.transferSize);
    platform::SetBarRange(Control::kFileBar, 0, transferSize);
    platform::SetBarStep(Control::kFileBar, 1);
    if (!isVouchedFor) BytesAhead = BytesAfter(it, updateSet);
    if (needUpdate && !DownloadFile(record)) return false;

    platform::SetBarPosition(Control::kFileBar, transferSize);
    platform::StepBar(Control::kOverallBar);
    ++index;
  }
  return true;
}

}  // namespace velmora
