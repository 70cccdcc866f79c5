#include "engine/update_pass.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "base/text.h"
#include "base/texts.h"
#include "engine/download.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "engine/verify_hash.h"
#include "platform/data_block.h"
#include "platform/dialog.h"
#include "platform/files.h"
#include "settings/session_log.h"

namespace velmora {
namespace {

using platform::Control;

void ShowRecord(const FileRecord& record, std::int32_t index, std::uint32_t total) {
  platform::SetStatusText(
      FormatText("%s %d / %d \n", texts::kChecking, index, static_cast<std::int32_t>(total)) +
      record.path);
}

bool ReportMissing(const FileRecord& record) {
  LogMessage("Couldn't find File : File %s will be update. \n", record.path.c_str());
  return true;
}

enum class LocalFile { kMissing, kTooLarge, kRead };

// Reads the file whole and closes it. A short read isn't told apart from a bad file: what is
// missing counts as zeros, and the digest decides.
LocalFile ReadLocalFile(const FileRecord& record, DataBlock& block) {
  platform::InputFile file(record.path);
  if (!file.IsOpen()) return LocalFile::kMissing;
  const std::uint32_t size = file.Size();
  if (!block.Allocate(size)) {
    LogMessage("Couldn't allocate %u bytes : File %s \n", size, record.path.c_str());
    return LocalFile::kTooLarge;
  }
  const std::uint32_t count = file.Read(block.data(), size);
  std::memset(block.data() + count, 0, size - count);
  return LocalFile::kRead;
}

bool NeedsUpdate(const FileRecord& record, bool isVouchedFor) {
  if (isVouchedFor) return !platform::FileExists(record.path) && ReportMissing(record);
  DataBlock block;
  const LocalFile local = ReadLocalFile(record, block);
  if (local == LocalFile::kMissing) return ReportMissing(record);
  if (local == LocalFile::kRead &&
      VerifyHash(block.data(), static_cast<std::uint32_t>(block.size()), record.contentHash)) {
    RememberVerified(record);
    return false;
  }
  LogMessage("Unmatch HashData : File %s will be update. \n", record.path.c_str());
  return true;
}

std::int64_t TransferSize(const FileRecord& record) {
  return std::max(ToNumber(record.transferSize), 0);
}

// What comes after a record that the cache doesn't vouch for. It is summed up once in a run, and
// never where the cache vouches for all.
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
  std::int32_t index = 0;
  for (auto it = updateSet.begin(); it != updateSet.end(); ++it) {
    const FileRecord record = *it;
    if (UpdateState == kCancelAsked) return false;
    ShowRecord(record, index, updateSet.Count());
    const bool isVouchedFor = IsVerifiedUnchanged(record);
    const bool needUpdate = NeedsUpdate(record, isVouchedFor);

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
