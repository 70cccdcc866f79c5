// Which parts of a publication can stay as they are when it is built again, or serve another one.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "engine/file_record.h"
#include "publish/build/payload.h"
#include "publish/build/source_tree.h"
#include "publish/common/published_list.h"

namespace velmora::publish {

// The publication in a folder; empty if there is none, or one made with other settings. The list is
// read once: apart from the payloads, the folder may change afterwards.
class EarlierPublication {
 public:
  EarlierPublication(const std::filesystem::path& folder, const std::string& listName,
                     const PayloadOptions& options);

  // A list without its payloads, which are taken for intact.
  EarlierPublication(const PublishedList& list, const PayloadOptions& options);

  // Whether there is a publication with the same settings.
  [[nodiscard]] bool IsUsable() const { return isUsable_; }

  // The record of `file` if its content is what was published and its payload is intact: making it
  // again would produce the same bytes. Both are read only if their sizes match. Any number of
  // threads. Throws PublishError if `file` can't be read, and when asked to stop.
  [[nodiscard]] std::optional<FileRecord> Unchanged(const SourceFile& file) const;

  // The same, and the payload at `target` as well, where no file is. It is what is there now that
  // is checked, whatever happens to the earlier publication meanwhile.
  [[nodiscard]] std::optional<FileRecord> Reuse(const SourceFile& file,
                                                const std::filesystem::path& target) const;

 private:
  void AddRecords(const PublishedList& list);
  [[nodiscard]] const FileRecord* RecordOf(const SourceFile& file) const;
  [[nodiscard]] bool IsIntact(const SourceFile& file, const FileRecord& record,
                              const std::filesystem::path& payload) const;

  [[nodiscard]] bool HasPayloads() const { return !folder_.empty(); }

  std::filesystem::path folder_;
  const PayloadOptions& options_;
  bool isUsable_ = false;
  std::map<std::string, FileRecord> records_;
};

}  // namespace velmora::publish
