#include "publish/common/removal_reach.h"

#include "platform/paths.h"
#include "publish/common/list_path.h"

namespace velmora::publish {

bool IsPatternRemoval(const FileRecord& removal) { return removal.transferHash.starts_with('R'); }

bool RemovesEverything(const FileRecord& removal) {
  if (IsPatternRemoval(removal)) return removal.path == "*.*" || removal.path == "*";
  return !removal.path.empty() && PlayersPath(removal.path).empty();
}

void RemovalReach::Add(const FileRecord& removal) {
  if (IsPatternRemoval(removal)) {
    patterns_.push_back({count_, removal.path});
  } else if (!removal.path.empty()) {
    paths_.emplace(PlayersPath(removal.path), count_);
  }
  ++count_;
}

std::vector<std::size_t> RemovalReach::Taking(const std::string& foldedPath) const {
  std::vector<std::size_t> taking;
  const auto addAllOf = [&](const std::string& path) {
    const auto [first, last] = paths_.equal_range(path);
    for (auto at = first; at != last; ++at) taking.push_back(at->second);
  };
  addAllOf("");
  for (const std::string_view folder : FoldersAbove(foldedPath)) addAllOf(std::string(folder));
  addAllOf(foldedPath);
  for (const Pattern& pattern : patterns_) {
    if (platform::MatchPathPattern(foldedPath, pattern.text)) taking.push_back(pattern.index);
  }
  return taking;
}

}  // namespace velmora::publish
