// Which files the removals of a list delete on players' disks. There are three kinds: a path takes
// the file or the folder of that name; a path with a separator at its end takes only a folder; a
// pattern takes only files, so that one without wildcards takes the file of that path alone.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "engine/file_record.h"

namespace velmora::publish {

// The longest path of a folder that patchers remove.
inline constexpr std::size_t kMaxRemovedFolder = 255;

// Whether the removal deletes all files that match a pattern, instead of one path.
[[nodiscard]] bool IsPatternRemoval(const FileRecord& removal);

// Whether it deletes a folder with everything in it, but no file of that name.
[[nodiscard]] bool IsFolderRemoval(const FileRecord& removal);

// The same for all removals that delete the same on every player's disk.
[[nodiscard]] std::string RemovalKey(const FileRecord& removal);

// Whether it deletes everything in an installation.
[[nodiscard]] bool RemovesEverything(const FileRecord& removal);

class RemovalIndex {
 public:
  // Removals are numbered in the order in which they are added, from 0.
  void Add(const FileRecord& removal);

  // The numbers of those that delete the file of this folded path: each that names it or a folder
  // above it, and each pattern that matches it.
  [[nodiscard]] std::vector<std::size_t> Matching(const std::string& foldedPath) const;

  // Whether one of them deletes the folder of this folded path itself, not only files in it.
  [[nodiscard]] bool DeletesFolder(const std::string& foldedPath) const;

 private:
  struct Pattern {
    std::size_t index;
    std::string text;
  };
  std::multimap<std::string, std::size_t> paths_;  // by key
  std::vector<Pattern> patterns_;
  std::size_t count_ = 0;
};

}  // namespace velmora::publish
