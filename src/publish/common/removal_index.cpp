#include "publish/common/removal_index.h"

#include <algorithm>

#include "platform/paths.h"
#include "publish/common/list_path.h"

namespace velmora::publish {
namespace {

// The one pattern by which patchers remove folders as well.
constexpr char kEverything[] = "*.*";

// The key of the removal of a folder that takes no file of its name.
std::string OnlyFolder(const std::string& folded) { return folded + "\\"; }

// The path itself comes last; "" is the whole installation.
std::vector<std::string> WithFoldersAbove(const std::string& foldedPath) {
  std::vector<std::string> paths = {""};
  for (const std::string_view folder : FoldersAbove(foldedPath)) paths.emplace_back(folder);
  paths.push_back(foldedPath);
  return paths;
}

}  // namespace

bool IsPatternRemoval(const FileRecord& removal) { return removal.transferHash.starts_with('R'); }

bool IsFolderRemoval(const FileRecord& removal) {
  return !IsPatternRemoval(removal) && NamesFolder(removal.path);
}

bool RemovesEverything(const FileRecord& removal) {
  if (IsPatternRemoval(removal)) return removal.path == kEverything || removal.path == "*";
  return !removal.path.empty() && FoldedPath(removal.path).empty();
}

std::string RemovalKey(const FileRecord& removal) {
  std::string key = FoldedPath(removal.path);
  if (IsPatternRemoval(removal)) return key + "\n";
  return IsFolderRemoval(removal) ? OnlyFolder(key) : key;
}

void RemovalIndex::Add(const FileRecord& removal) {
  if (IsPatternRemoval(removal)) {
    patterns_.push_back({count_, removal.path});
  } else if (!removal.path.empty()) {
    paths_.emplace(RemovalKey(removal), count_);
  }
  ++count_;
}

std::vector<std::size_t> RemovalIndex::Matching(const std::string& foldedPath) const {
  std::vector<std::size_t> matching;
  const auto addAllOf = [&](const std::string& key) {
    const auto [first, last] = paths_.equal_range(key);
    for (auto at = first; at != last; ++at) matching.push_back(at->second);
  };
  for (const std::string& folder : WithFoldersAbove(foldedPath)) {
    addAllOf(folder);
    if (folder != foldedPath) addAllOf(OnlyFolder(folder));
  }
  for (const Pattern& pattern : patterns_) {
    if (platform::MatchPathPattern(foldedPath, pattern.text)) matching.push_back(pattern.index);
  }
  return matching;
}

bool RemovalIndex::DeletesFolder(const std::string& foldedPath) const {
  const auto folders = WithFoldersAbove(foldedPath);
  return std::any_of(folders.begin(), folders.end(),
                     [this](const std::string& folder) {
                       return paths_.contains(folder) || paths_.contains(OnlyFolder(folder));
                     }) ||
         std::any_of(patterns_.begin(), patterns_.end(),
                     [](const Pattern& pattern) { return pattern.text == kEverything; });
}

}  // namespace velmora::publish
