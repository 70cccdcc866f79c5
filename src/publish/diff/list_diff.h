// What it costs players of an old publication to update to a new one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "publish/common/published_list.h"

namespace velmora::publish {

struct DiffEntry {
  std::string path;
  std::uint64_t bytes;  // to download, or on the player's disk
};

// For a player who has all files of the old list, and a cache of them. Entries are in the order
// in which a patcher works, with paths as the lists spell them.
struct ListDiff {
  std::vector<DiffEntry> downloads;
  // Unchanged, but read and hashed once, since the cache has a different record of them.
  std::vector<DiffEntry> checks;
  // Read and hashed at each start from then on, since the new cache can't hold them: their paths
  // hold a space, or they come after a line that is too long. They aren't among the checks, unless
  // they have another kind of hash than before.
  std::vector<DiffEntry> uncached;
  // Those of the checks that have another kind of hash than before. They count as unchanged, but
  // only their sizes can be compared.
  std::size_t uncertain = 0;
  std::vector<DiffEntry> deletions;
  // Neither listed nor deleted any more: they stay on players' disks forever.
  std::vector<DiffEntry> leftBehind;
  // Old files where the new list needs a folder, and old files in folders that have become files,
  // if no removal makes room: patchers can't replace one by the other, so these players' updates
  // fail. Removing all files of a folder isn't enough, since the folder itself stays.
  std::vector<DiffEntry> inTheWay;
  // Restarts of the patcher: one for each new file that is its program or its settings.
  std::size_t restarts = 0;

  [[nodiscard]] std::uint64_t DownloadBytes() const;
  [[nodiscard]] std::uint64_t UncachedBytes() const;
  // The number of requests: enable.cdn from each process of the start, the list from each process
  // that updates, and the files. Without the information page.
  [[nodiscard]] std::size_t Requests() const;
};

[[nodiscard]] ListDiff CompareLists(const PublishedList& before, const PublishedList& after);

}  // namespace velmora::publish
