// The tree that is published: its files, under names that every patcher accepts.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "publish/build/ignore_rules.h"

namespace velmora::publish {

struct SourceFile {
  std::filesystem::path path;  // where it is read
  std::string listPath;        // what the list calls it: relative, backslashes between directories
  std::uint64_t size = 0;      // bytes
};

// All files of the tree that `rules` don't ignore, in the byte order of their list paths, which
// doesn't depend on the system. Throws PublishError for anything but directories and plain files,
// for names and sizes that a patcher can't take, and for files that would collide on players'
// disks.
[[nodiscard]] std::vector<SourceFile> ScanTree(const std::filesystem::path& root,
                                               const IgnoreRules& rules = {});

// Why a patcher can't take a file of this list path and size; empty if it can.
[[nodiscard]] std::string ReasonAgainst(const std::string& listPath, std::uint64_t size);

// Pairs of files that can't both stand on a player's disk: their paths differ in case alone, or one
// has the path of a directory in which the other lies.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> Collisions(
    const std::vector<std::string>& listPaths);

// Whether the path with `suffix` behind it fits into the list, into a patcher's request, and on the
// server's disk. The base path that stands in front of it in a request isn't known here, and takes
// from the same room.
[[nodiscard]] bool CanBeAskedFor(const std::string& listPath, std::string_view suffix);

}  // namespace velmora::publish
