// What of a publication can stay as it is when it is made anew.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "engine/file_record.h"
#include "publish/build/payload.h"
#include "publish/build/source_tree.h"
#include "publish/common/published_list.h"

namespace velmora::publish {

// Lies beside the list, and says how its publication was made.
inline constexpr char kSettingsName[] = ".velmora-publish";

// All that payloads depend on besides their files, and the digest of the list that they were
// published with, so that it counts for no other one. Lines of text.
[[nodiscard]] std::string SettingsText(const PayloadOptions& options, std::string_view list);

// The publication that stands in a folder; nothing if there is none, or one made with other
// settings. Holds what it read: the folder may change afterwards, but for its payloads.
class EarlierPublication {
 public:
  EarlierPublication(const std::filesystem::path& folder, const std::string& listName,
                     const PayloadOptions& options);

  // The record of `file`, if its content is what was published and the payload is still there,
  // whole: then making it anew would give the same bytes. Reads both, but only if the sizes say
  // that it may be so. Any thread, several at once. Throws PublishError if `file` can't be read,
  // and when asked to stop.
  [[nodiscard]] std::optional<FileRecord> Unchanged(const SourceFile& file) const;

 private:
  [[nodiscard]] bool HasPayload(const FileRecord& record) const;

  std::filesystem::path folder_;
  const PayloadOptions& options_;
  std::map<std::string, FileRecord> records_;
};

// Where the payload of a record stands below its publication's folder.
[[nodiscard]] std::filesystem::path PayloadPlace(const FileRecord& record);

}  // namespace velmora::publish
