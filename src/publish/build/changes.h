// What a new publication changes for the players of an earlier one.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/build/source_tree.h"
#include "publish/common/published_list.h"

namespace velmora::publish {

struct Changes {
  std::size_t added = 0;
  std::size_t changed = 0;
  std::size_t removed = 0;
};

// By content alone: a payload that is compressed anew is no change. Paths are the same that are so
// on players' disks.
[[nodiscard]] Changes ChangesSince(const PublishedList& earlier,
                                   const std::vector<FileRecord>& records);

// A build step that failed unseen mostly leaves a tree from which much is missing. Throws
// PublishError, with the largest files, if more than `percent` of the earlier publication's files,
// or of their bytes, are gone.
void RequireFewRemoved(const PublishedList& earlier, const std::vector<SourceFile>& files,
                       unsigned percent);

}  // namespace velmora::publish
