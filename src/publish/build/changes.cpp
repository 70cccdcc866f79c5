#include "publish/build/changes.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <utility>

#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"
#include "publish/common/shown_text.h"

namespace velmora::publish {
namespace {

using RemovedFile = std::pair<std::uint64_t, std::string>;  // bytes, path

std::uint64_t BytesOf(const FileRecord& record) {
  return static_cast<std::uint64_t>(ListedSize(record.contentSize).value_or(0));
}

std::string TextOfLargest(std::vector<RemovedFile> removed) {
  constexpr std::size_t kShown = 10;
  const std::size_t shown = std::min(kShown, removed.size());
  std::partial_sort(removed.begin(), removed.begin() + static_cast<std::ptrdiff_t>(shown),
                    removed.end(), [](const RemovedFile& a, const RemovedFile& b) {
                      return std::pair(b.first, a.second) < std::pair(a.first, b.second);
                    });
  std::string text;
  for (std::size_t i = 0; i < shown; ++i) {
    text +=
        "\n  " + ShownText(removed[i].second) + ", " + std::to_string(removed[i].first) + " bytes";
  }
  if (shown < removed.size()) text += "\n  and " + std::to_string(removed.size() - shown) + " more";
  return text;
}

}  // namespace

Changes ChangesSince(const PublishedList& earlier, const std::vector<FileRecord>& records) {
  std::map<std::string, std::pair<std::string, std::uint64_t>> before;  // hash and size
  for (const FileRecord& record : earlier.files) {
    before.try_emplace(FoldedPath(record.path), record.contentHash, BytesOf(record));
  }
  Changes changes;
  for (const FileRecord& record : records) {
    const auto found = before.find(FoldedPath(record.path));
    if (found == before.end()) {
      ++changes.added;
      continue;
    }
    if (found->second != std::pair(record.contentHash, BytesOf(record))) ++changes.changed;
    before.erase(found);
  }
  changes.removed = before.size();
  return changes;
}

void RequireFewRemoved(const PublishedList& earlier, const std::vector<SourceFile>& files,
                       unsigned percent) {
  std::map<std::string, std::uint64_t> sizes;  // of the tree's files
  for (const SourceFile& file : files) sizes.emplace(FoldedPath(file.listPath), file.size);
  std::vector<RemovedFile> removed;  // and those that are empty now
  std::uint64_t missing = 0;
  std::uint64_t removedBytes = 0;
  std::uint64_t count = 0;
  std::uint64_t bytes = 0;
  for (const FileRecord& record : earlier.files) {
    ++count;
    bytes += BytesOf(record);
    // A copy to a full disk leaves files that are there and empty.
    const auto found = sizes.find(FoldedPath(record.path));
    const bool isMissing = found == sizes.end();
    const bool isEmptied = !isMissing && found->second == 0 && BytesOf(record) > 0;
    if (!isMissing && !isEmptied) continue;
    missing += isMissing ? 1 : 0;
    removedBytes += BytesOf(record);
    removed.emplace_back(BytesOf(record), record.path);
  }
  if (missing * 100 <= count * percent && removedBytes * 100 <= bytes * percent) return;
  throw PublishError("the tree lacks " + std::to_string(missing) + " of " + std::to_string(count) +
                     " files, " + std::to_string(removedBytes) + " of " + std::to_string(bytes) +
                     " bytes, of the earlier publication. Is it complete? If so, "
                     "--max-removed PERCENT allows it. The largest that are missing or empty:" +
                     TextOfLargest(removed));
}

}  // namespace velmora::publish
