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

// The path of the line at which the reading of the cache ends, if one is too long.
std::optional<std::string> EndOfCache(const PublishedList& list) {
  std::optional<std::string> end;
  for (const FileRecord& record : list.files) {
    if (EndsCache(record) && (!end || record.path < *end)) end = record.path;
  }
  return end;
}

// Whether a patcher finds the new record in its cache.
bool IsKnownToCache(const FileRecord& before, const FileRecord& after,
                    const std::optional<std::string>& end) {
  return CacheLine(before) == CacheLine(after) && after.path.find(' ') == std::string::npos &&
         (!end || after.path < *end);
}

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

void CompareFile(ListDiff& diff, const FileRecord* before, const FileRecord& after,
                 const std::optional<std::string>& end) {
  bool isUncertain = false;
  if (before == nullptr || !HasSameContent(*before, after, isUncertain)) {
    AddDownload(diff, after);
  } else if (!IsKnownToCache(*before, after, end)) {
    diff.checks.push_back({after.path, ByteCount(after.contentSize)});
    diff.uncertain += isUncertain ? 1 : 0;
  }
}

}  // namespace

std::uint64_t ListDiff::DownloadBytes() const {
  return std::accumulate(
      downloads.begin(), downloads.end(), std::uint64_t{0},
      [](std::uint64_t sum, const DiffEntry& entry) { return sum + entry.bytes; });
}

std::size_t ListDiff::Requests() const {
  constexpr std::size_t kProcesses = 3;  // the patcher, its copy, the one that cleans up
  constexpr std::size_t kRestarted = 2;  // the one that cleans up and restarts, its copy
  return kProcesses + restarts * kRestarted + 1 + restarts + downloads.size();
}

ListDiff CompareLists(const PublishedList& before, const PublishedList& after) {
  ListDiff diff;
  const ByFolded old = FilesOf(before);
  const RemovalIndex removals = IndexOfRemovals(after);
  const std::optional<std::string> end = EndOfCache(before);
  std::set<std::string> seen;
  for (const FileRecord& record : after.files) {
    const std::string folded = FoldedPath(record.path);
    if (!seen.insert(folded).second) continue;
    const auto found = old.find(folded);
    const bool isThere = found != old.end() && removals.Matching(folded).empty();
    CompareFile(diff, isThere ? &found->second : nullptr, record, end);
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
