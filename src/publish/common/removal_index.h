// Which files the removals of a list delete on players' disks.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "engine/file_record.h"

namespace velmora::publish {

// Whether the removal deletes all files that match a pattern, instead of one path.
[[nodiscard]] bool IsPatternRemoval(const FileRecord& removal);

// Whether it deletes everything in an installation.
[[nodiscard]] bool RemovesEverything(const FileRecord& removal);

class RemovalIndex {
 public:
  // Removals are numbered in the order in which they are added, from 0.
  void Add(const FileRecord& removal);

  // The numbers of those that delete the file of this folded path: each that names it or a folder
  // above it, and each pattern that matches it.
  [[nodiscard]] std::vector<std::size_t> Matching(const std::string& foldedPath) const;

 private:
  struct Pattern {
    std::size_t index;
    std::string text;
  };
  std::multimap<std::string, std::size_t> paths_;  // by folded path; "" is the whole installation
  std::vector<Pattern> patterns_;
  std::size_t count_ = 0;
};

}  // namespace velmora::publish
