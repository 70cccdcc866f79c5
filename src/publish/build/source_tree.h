// The tree that is published: its files, with paths that every patcher accepts.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "publish/build/complaints.h"
#include "publish/build/ignore_rules.h"
#include "publish/common/disk_text.h"

namespace velmora::publish {

struct SourceFile {
  std::filesystem::path path;  // where it is read
  // Its path in the list: relative, with backslashes, in code page 932.
  std::string listPath;
  std::uint64_t size = 0;  // in bytes
};

// All files of the tree that `rules` don't ignore, in the byte order of their list paths, which is
// the same on every system. Adds a complaint for each file that can't be read or that patchers
// can't install, for whatever is neither a directory nor a plain file, and for all that the linter
// reports as an error. Requests begin with `dataPath`. With kGuess, names in UTF-8 beyond ASCII are
// complained about, too. With complaints, the result is of no use but for finding more of them.
[[nodiscard]] std::vector<SourceFile> ScanTree(const std::filesystem::path& root,
                                               const IgnoreRules& rules, NameEncoding encoding,
                                               const std::string& dataPath, Complaints& complaints);

// Adds a complaint for each file that can't be opened. That takes time, and so ScanTree does it
// only if there are other complaints.
void CheckReadable(const std::vector<SourceFile>& files, Complaints& complaints);

}  // namespace velmora::publish
