// What a build is going to publish, as far as it can be told before the payloads are made. Nothing
// here writes to a disk.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/build/publication.h"
#include "publish/build/size_spelling.h"
#include "publish/build/source_tree.h"
#include "publish/build/start_check.h"
#include "publish/common/published_list.h"

namespace velmora::publish {

// Null if there is none.
using EarlierList = std::unique_ptr<const PublishedList>;

struct PublicationPlan {
  std::vector<SourceFile> files;
  std::vector<FileRecord> removals;
  std::string clientExe;                   // as the list names it
  std::optional<std::string> redirection;  // the text of its enable.cdn, if that has to be written
  // The list that is replaced: the one of `removeFrom`, or else in `output`, or else in `reuse`.
  EarlierList earlier;
  bool removesWhatIsGone = false;  // what that list has more than the new one
  SizeSpelling spelling;           // of all these
  StartFindings start;
};

// Throws PublishError if the list can't have the name.
void RequireListName(const std::string& name);

// Throws PublishError if the list can't have its name, or one of tree and output contains the
// other.
void RequireUsable(const BuildOptions& options);

// Reads the tree and the earlier lists. Throws PublishError for everything that a build refuses
// before it makes a payload.
[[nodiscard]] PublicationPlan PlanPublication(const BuildOptions& options);

}  // namespace velmora::publish
