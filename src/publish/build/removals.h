// The removals of a publication, which become the DEL lines of its list.
//
// Patchers carry them out at every start, before they install anything. A removal that matched a
// published file would have it deleted and downloaded at each start, so there is none.
#pragma once

#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/build/complaints.h"
#include "publish/build/source_tree.h"
#include "publish/common/published_list.h"

namespace velmora::publish {

// The mode of a removal whose path is a pattern: it removes every file whose whole path matches.
// With any other mode, the path names a file, or a directory with everything in it.
inline constexpr char kPatternMode[] = "R";

// The removals (path and mode) of a publication of `files`: those of `requested`, in their order,
// then, in byte order, what follows from `earlier` (null if there is no earlier list): its files
// that are gone, and its own removals, unless they match a new file. An old file where `files` need
// a folder is removed by a pattern that takes only the file. An old folder that is a file now is
// removed as well as its files, by a path with a separator at its end, which takes only the folder,
// with everything that players have in it. So is what an earlier removal named, which may have been
// a folder, where a file is now. Paths that mean the same file on players' disks appear once. The
// patcher's program and settings aren't removed when a tree doesn't contain them.
//
// Adds a complaint for each of `requested` that matches a file, for each removal, requested or
// earlier, that leaves the installation or removes all of it, and for an old file or folder that
// would be in the way of the new ones and can't be removed by itself.
[[nodiscard]] std::vector<FileRecord> Removals(const std::vector<FileRecord>& requested,
                                               const PublishedList* earlier,
                                               const std::vector<SourceFile>& files,
                                               Complaints& complaints);

// Those of `removals` that tell of a file where `files` need a folder, or of a folder, or something
// in it, where they need a file. Whoever has it could never update without them.
[[nodiscard]] std::vector<FileRecord> RemovalsInTheWay(const std::vector<FileRecord>& removals,
                                                       const std::vector<SourceFile>& files);

}  // namespace velmora::publish
