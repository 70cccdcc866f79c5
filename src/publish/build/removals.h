// What players shall lose: the DEL lines of a publication.
//
// Every start of a player carries them out before it installs anything. One that hit a published
// file would have that file deleted and downloaded at each start, so there is none of that kind.
#pragma once

#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/build/source_tree.h"
#include "publish/common/published_list.h"

namespace velmora::publish {

// Mode of a record whose path is a pattern, which hits every file whose whole path matches it. A
// record of another mode names a file or a directory with all it holds.
inline constexpr char kPatternMode[] = "R";

// The removals (path and mode) of a publication of `files`: those of `asked`, in their order, and
// behind them, in byte order, what `earlier` (none: null) makes necessary: its files that are none
// of the new publication, and its own removals, unless they would hit a new file. What players'
// disks take for the same path is removed once. The patcher's own program and settings never go
// because a tree doesn't hold them. Throws PublishError if one of `asked` hits a file, and for one
// that names anything outside of the installation, or the whole of it.
[[nodiscard]] std::vector<FileRecord> Removals(const std::vector<FileRecord>& asked,
                                               const PublishedList* earlier,
                                               const std::vector<SourceFile>& files);

}  // namespace velmora::publish
