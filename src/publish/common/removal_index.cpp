#include "publish/common/removal_index.h"

#include "platform/paths.h"
#include "publish/common/list_path.h"

namespace velmora::publish {

bool IsPatternRemoval(const FileRecord& removal) { return removal.transferHash.starts_with('R'); }

bool RemovesEverything(const FileRecord& removal) {
  if (IsPatternRemoval(removal)) return removal.path == "*.*" || removal.path == "*";
  return !removal.path.empty() && FoldedPath(removal.path).empty();
}

void RemovalIndex::Add(const FileRecord& removal) {
  if (IsPatternRemoval(removal)) {
    patterns_.push_back({count_, removal.path});
  } else if (!removal.path.empty()) {
    paths_.emplace(FoldedPath(removal.path), count_);
  }
  ++count_;
}

std::vector<std::size_t> RemovalIndex::Matching(const std::string& foldedPath) const {
  std::vector<std::size_t> matching;
  const auto addAllOf = [&](const std::string& path) {
    const auto [first, last] = paths_.equal_range(path);
    for (auto at = first; at != last; ++at) matching.push_back(at->second);
  };
  addAllOf("");
  for (const std::string_view folder : FoldersAbove(foldedPath)) addAllOf(std::string(folder));
  addAllOf(foldedPath);
  for (const Pattern& pattern : patterns_) {
    if (platform::MatchPathPattern(foldedPath, pattern.text)) matching.push_back(pattern.index);
  }
  return matching;
}

}  // namespace velmora::publish
