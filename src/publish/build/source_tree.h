// The tree that is published: its files, with paths that every patcher accepts.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "publish/build/ignore_rules.h"

namespace velmora::publish {

struct SourceFile {
  std::filesystem::path path;  // where it is read
  std::string listPath;        // its path in the list: relative, with backslashes
  std::uint64_t size = 0;      // in bytes
};

// All files of the tree that `rules` don't ignore, in the byte order of their list paths, which is
// the same on every system. Throws PublishError if the tree holds anything but directories and
// plain files, or a file that patchers can't install or the linter reports as an error.
[[nodiscard]] std::vector<SourceFile> ScanTree(const std::filesystem::path& root,
                                               const IgnoreRules& rules = {});

}  // namespace velmora::publish
