#include "publish/build/size_spelling.h"

#include <algorithm>

#include "engine/reference_list.h"
#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"
#include "publish/common/shown_text.h"

namespace velmora::publish {

void SizeSpelling::Add(const PublishedList& list) {
  for (const FileRecord& record : list.files) {
    const auto size = ListedSize(record.contentSize);
    if (!size) continue;
    const std::size_t zeros = record.contentSize.size() - std::to_string(*size).size();
    if (zeros == 0) continue;
    std::size_t& most = zeros_[FoldedPath(record.path)];
    most = std::max(most, zeros);
  }
}

void SizeSpelling::Spell(FileRecord& record, std::size_t more) const {
  const auto size = ListedSize(record.contentSize);
  if (!size) return;
  const auto found = zeros_.find(FoldedPath(record.path));
  const std::size_t zeros = more + (found == zeros_.end() ? 0 : found->second);
  const std::string digits = std::to_string(*size);
  if (zeros + digits.size() > kMaxListSize) {
    throw PublishError(ShownText(record.path) +
                       ": was rolled back so often that its size has no room for another zero; "
                       "build the publication from its tree, with the other --hash");
  }
  record.contentSize = std::string(zeros, '0') + digits;
}

}  // namespace velmora::publish
