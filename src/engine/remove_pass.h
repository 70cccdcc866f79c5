// Removes what the DEL lines of the reference list name: single files, directories with everything
// in them, and files that match a pattern anywhere below the working directory. The list is
// trusted: nothing here keeps a path inside the installation. Worker thread.
#pragma once

#include <string>

#include "engine/record_set.h"

namespace velmora {

// Removes every item of the set, in its order. A failed removal is logged and the pass goes on.
// False only if a cancel was seen before a record.
[[nodiscard]] bool RemovePass(const FileRecordSet& removeSet);

// Removes one item: with a mode that begins with 'R', every file of the tree whose path matches
// `path`; otherwise the directory or file `path`. False if a removal failed.
[[nodiscard]] bool RemoveItem(const std::string& path, const std::string& mode);

// Walks the directory `searchPath`, which ends in an asterisk, and everything below it, and deletes
// the files whose full path matches `pattern`. The pattern "*.*" also deletes directories, and
// links to directories, which are otherwise skipped and logged. Links are never followed. False if
// the directory can't be listed, a deletion failed, or a cancel was seen. An entry whose full path
// has more than 259 bytes is skipped, logged, and counts as a failure.
[[nodiscard]] bool RemoveFiles(const std::string& searchPath, const std::string& pattern);

}  // namespace velmora
