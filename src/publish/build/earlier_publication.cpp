#include "publish/build/earlier_publication.h"

#include <system_error>

#include "publish/build/new_file.h"
#include "publish/build/publication_record.h"
#include "publish/build/published_payload.h"
#include "publish/common/publish_error.h"
#include "publish/common/sized_reader.h"

namespace velmora::publish {

namespace fs = std::filesystem;

namespace {

// Empty if the file is missing or unreadable: everything is then made again.
std::string TextIfAny(const fs::path& path) {
  std::error_code ignored;
  if (!fs::is_regular_file(path, ignored)) return {};
  try {
    return ReadWholeFile(path);
  } catch (const PublishError&) {
    return {};
  }
}

}  // namespace

EarlierPublication::EarlierPublication(const fs::path& folder, const std::string& listName,
                                       const PayloadOptions& options)
    : folder_(folder), options_(options) {
  const std::string text = TextIfAny(folder / PathOf(listName));
  if (ReadPublicationRecord(folder).settings != SettingsText(options, text)) return;
  isUsable_ = true;
  AddRecords(PublishedList(text));
}

EarlierPublication::EarlierPublication(const PublishedList& list, const PayloadOptions& options)
    : options_(options), isUsable_(true) {
  AddRecords(list);
}

void EarlierPublication::AddRecords(const PublishedList& list) {
  for (const FileRecord& record : list.files) records_.emplace(record.path, record);
}

std::optional<FileRecord> EarlierPublication::Unchanged(const SourceFile& file) const {
  const FileRecord* const record = RecordOf(file);
  if (record == nullptr || !IsIntact(file, *record, folder_ / PayloadPlace(*record))) {
    return std::nullopt;
  }
  return *record;
}

std::optional<FileRecord> EarlierPublication::Reuse(const SourceFile& file,
                                                    const fs::path& target) const {
  const FileRecord* const record = RecordOf(file);
  if (record == nullptr) return std::nullopt;
  if (LinkOrCopy(folder_ / PayloadPlace(*record), target) && IsIntact(file, *record, target)) {
    return *record;
  }
  std::error_code error;
  platform::RemoveEntry(target, error);
  if (error) FailToWrite(target, error);
  return std::nullopt;
}

// Null if it is another file by its size alone.
const FileRecord* EarlierPublication::RecordOf(const SourceFile& file) const {
  const auto found = records_.find(file.listPath);
  if (found == records_.end()) return nullptr;
  const FileRecord& record = found->second;
  const auto size = ListedSize(record.contentSize);
  const bool isOfSize = size && static_cast<std::uint64_t>(*size) == file.size;
  return isOfSize ? &record : nullptr;
}

bool EarlierPublication::IsIntact(const SourceFile& file, const FileRecord& record,
                                  const fs::path& payload) const {
  const auto checkStop = [this] { StopIfAsked(options_); };
  return (!HasPayloads() || IsPayload(payload, record, checkStop)) &&
         DigestOfFile(file.path, file.size, options_.hash, checkStop) == record.contentHash;
}

}  // namespace velmora::publish
