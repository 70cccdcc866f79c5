// What a new publication costs the players of an old one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "publish/common/published_list.h"

namespace velmora::publish {

struct DiffEntry {
  std::string path;
  std::uint64_t bytes;  // that come from the server, or lie on the player's disk
};

// For a player who has all of the old list, and a cache that knows it. All in the order in which a
// patcher works; paths as the lists spell them.
struct ListDiff {
  std::vector<DiffEntry> downloads;
  // Stay as they are, but are read and hashed once, since the cache knows another record of them.
  std::vector<DiffEntry> checks;
  // Among the checks: hashed by another digest than before, so that only their sizes are known to
  // be equal. They count as unchanged.
  std::size_t uncertain = 0;
  std::vector<DiffEntry> deletions;
  // Neither listed nor deleted any more: they stay on players' disks for ever.
  std::vector<DiffEntry> leftBehind;
  // Files of the old list where the new one needs a folder, and files of folders that are files
  // now: no list can make room, so that these players' updates fail.
  std::vector<DiffEntry> inTheWay;
  // Starts of the patcher anew, one for each replaced program and settings file of its own.
  std::size_t restarts = 0;

  [[nodiscard]] std::uint64_t DownloadBytes() const;
  // All that a start asks the server for: enable.cdn from each process of the start, the list from
  // each that updates, the files. The information page comes on top.
  [[nodiscard]] std::size_t Requests() const;
};

[[nodiscard]] ListDiff CompareLists(const PublishedList& before, const PublishedList& after);

}  // namespace velmora::publish
