#include "publish/diff/list_diff.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>
#include <set>

#include "base/text.h"
#include "engine/verify_cache.h"
#include "publish/common/list_path.h"
#include "publish/common/removal_index.h"

namespace velmora::publish {
namespace {

using ByFolded = std::map<std::string, FileRecord>;

// By folded path. Of several records of one file the first counts.
ByFolded FilesOf(const PublishedList& list) {
  ByFolded files;
  for (const FileRecord& record : list.files) files.emplace(FoldedPath(record.path), record);
  return files;
}

RemovalIndex IndexOfRemovals(const PublishedList& list) {
  RemovalIndex index;
  for (const FileRecord& removal : list.removals) index.Add(removal);
  return index;
}

// What patchers can keep in the cache after an update to a list.
class CacheLimits {
 public:
  explicit CacheLimits(const PublishedList& list) {
    for (const FileRecord& record : list.files) {
      if (EndsCache(record) && (!end_ || record.path < *end_)) end_ = record.path;
    }
  }
  [[nodiscard]] bool Allow(const FileRecord& record) const {
    return record.path.find(' ') == std::string::npos && (!end_ || record.path < *end_);
  }

 private:
  std::optional<std::string> end_;  // the path of the line at which the reading ends
};

bool HasSameContent(const FileRecord& before, const FileRecord& after, bool& isUncertain) {
  isUncertain = before.contentHash.size() != after.contentHash.size();
  return ToNumber(before.contentSize) == ToNumber(after.contentSize) &&
         (isUncertain || before.contentHash == after.contentHash);
}

// Whether the new list needs a folder where the player has this file, or a file where the player
// has a folder above it, and doesn't remove what is there.
bool IsInTheWay(const std::string& old, const std::set<std::string>& listed,
                const RemovalIndex& removals) {
  const auto folders = FoldersAbove(old);
  const auto below = listed.lower_bound(old + "\\");
  const bool isFolderNow = below != listed.end() && below->starts_with(old + "\\");
  return (isFolderNow && removals.Matching(old).empty()) ||
         std::any_of(folders.begin(), folders.end(), [&](std::string_view folder) {
           return listed.contains(std::string(folder)) &&
                  !removals.DeletesFolder(std::string(folder));
         });
}

bool AsksForRestart(const std::string& path) {
  return path.find("VelmoraUpdate.exe") != std::string::npos ||
         path.find("./VelmoraUpdate.dat") != std::string::npos;
}

void AddDownload(ListDiff& diff, const FileRecord& record) {
  diff.downloads.push_back({record.path, ByteCount(record.transferSize)});
  if (AsksForRestart(record.path)) ++diff.restarts;
}

std::uint64_t SumOf(const std::vector<DiffEntry>& entries) {
  return std::accumulate(
      entries.begin(), entries.end(), std::uint64_t{0},
      [](std::uint64_t sum, const DiffEntry& entry) { return sum + entry.bytes; });
}

// Compares the files of both lists, with what the caches before and after the update can hold.
class FileComparison {
 public:
  FileComparison(const PublishedList& before, const PublishedList& after, ListDiff& diff)
      : before_(before), after_(after), diff_(diff) {}

  // `before` is null if the player doesn't have the file when its turn comes.
  void Add(const FileRecord* before, const FileRecord& after) {
    const DiffEntry entry{after.path, ByteCount(after.contentSize)};
    const bool isUncached = !after_.Allow(after);
    if (isUncached) diff_.uncached.push_back(entry);
    bool isUncertain = false;
    if (before == nullptr || !HasSameContent(*before, after, isUncertain)) {
      AddDownload(diff_, after);
    } else if (isUncertain || (!isUncached && !IsKnown(*before, after))) {
      diff_.checks.push_back(entry);
      diff_.uncertain += isUncertain ? 1 : 0;
    }
  }

 private:
  // Whether a patcher finds the new record in its cache.
  [[nodiscard]] bool IsKnown(const FileRecord& before, const FileRecord& after) const {
    return CacheLine(before) == CacheLine(after) && before_.Allow(after);
  }

  const CacheLimits before_;
  const CacheLimits after_;
  ListDiff& diff_;
};

}  // namespace

std::uint64_t ListDiff::DownloadBytes() const { return SumOf(downloads); }

std::uint64_t ListDiff::UncachedBytes() const { return SumOf(uncached); }

std::size_t ListDiff::Requests() const {
  constexpr std::size_t kProcesses = 3;  // the patcher, its copy, the one that cleans up
  constexpr std::size_t kRestarted = 2;  // the one that cleans up and restarts, its copy
  return kProcesses + restarts * kRestarted + 1 + restarts + downloads.size();
}

ListDiff CompareLists(const PublishedList& before, const PublishedList& after) {
  ListDiff diff;
  const ByFolded old = FilesOf(before);
  const RemovalIndex removals = IndexOfRemovals(after);
  FileComparison comparison(before, after, diff);
  std::set<std::string> seen;
  for (const FileRecord& record : after.files) {
    const std::string folded = FoldedPath(record.path);
    if (!seen.insert(folded).second) continue;
    const auto found = old.find(folded);
    const bool isThere = found != old.end() && removals.Matching(folded).empty();
    comparison.Add(isThere ? &found->second : nullptr, record);
  }
  for (const auto& [folded, record] : old) {
    const DiffEntry entry{record.path, ByteCount(record.contentSize)};
    if (IsInTheWay(folded, seen, removals)) diff.inTheWay.push_back(entry);
    if (!removals.Matching(folded).empty()) {
      diff.deletions.push_back(entry);
    } else if (!seen.contains(folded)) {
      diff.leftBehind.push_back(entry);
    }
  }
  return diff;
}

}  // namespace velmora::publish
