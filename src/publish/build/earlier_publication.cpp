#include "publish/build/earlier_publication.h"

#include <system_error>

#include "engine/reference_list.h"
#include "publish/build/zlib_blocks.h"
#include "publish/common/file_digest.h"
#include "publish/common/list_path.h"
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

std::string CompressionText(const PayloadOptions& options) {
  if (options.compress == Compress::kAlways) return "always";
  if (options.compress == Compress::kNever) return "never";
  std::string text = "pays from " + std::to_string(options.paysFrom) + " but";
  for (const std::string& type : options.plainTypes) text += ' ' + type;
  return text;
}

}  // namespace

std::string SettingsText(const PayloadOptions& options, std::string_view list) {
  FileDigest digest(options.hash);
  digest.Add(list.data(), list.size());
  return std::string("velmora-publish 1\n") + "hash " +
         (options.hash == HashKind::kMd5 ? "md5" : "sha1") + "\ncompress " +
         CompressionText(options) + "\n" + StreamMaker() + "\nlist " + digest.Text() + "\n";
}

EarlierPublication::EarlierPublication(const fs::path& folder, const std::string& listName,
                                       const PayloadOptions& options)
    : folder_(folder), options_(options) {
  const std::string text = TextIfAny(folder / listName);
  if (TextIfAny(folder / kSettingsName) != SettingsText(options, text)) return;
  const PublishedList list(text);
  for (const FileRecord& record : list.files) records_.emplace(record.path, record);
}

std::optional<FileRecord> EarlierPublication::Unchanged(const SourceFile& file) const {
  const auto found = records_.find(file.listPath);
  if (found == records_.end()) return std::nullopt;
  const FileRecord& record = found->second;
  if (record.contentSize != std::to_string(file.size) || !HasPayload(record)) return std::nullopt;
  const auto checkStop = [this] { StopIfAsked(options_); };
  if (DigestOfFile(file.path, file.size, options_.hash, checkStop) != record.contentHash) {
    return std::nullopt;
  }
  return record;
}

bool EarlierPublication::HasPayload(const FileRecord& record) const {
  const fs::path payload = folder_ / PayloadPlace(record);
  std::error_code error;
  const bool isFile = fs::is_regular_file(fs::symlink_status(payload, error));
  const std::uint64_t size = isFile ? fs::file_size(payload, error) : 0;
  if (!isFile || error || std::to_string(size) != record.transferSize) return false;
  StopIfAsked(options_);
  try {
    return DigestOfFile(payload, size, options_.hash, [] {}) == record.transferHash;
  } catch (const PublishError&) {
    return false;
  }
}

fs::path PayloadPlace(const FileRecord& record) {
  fs::path place = fs::path(ServedPath(record.path)).lexically_normal();
  if (record.compressed) place += kCompressedMark;
  return place;
}

}  // namespace velmora::publish
