// Installs one downloaded and verified file. The old file stays whole until the new one is written,
// and is then replaced in one step. A file that the system doesn't let us replace is written in
// place.
//
// A new file is written to its own folder under the name kUnfinishedFile, so that it gets that
// folder's disk and rights. The file kUnfinishedFolders lists the folders in use, one per line, so
// that the next run finds what a killed process has left.
//
// Worker thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/data_block.h"
#include "engine/file_record.h"

namespace velmora {

inline constexpr char kUnfinishedFile[] = "_VelmoraUpdate.new";
inline constexpr char kUnfinishedFolders[] = "_VelmoraUpdate.dirs";  // in the working directory

// How an installation ended: done, or the step that failed and the system's error.
enum class InstallStep { kDone, kDirectory, kCreate, kWrite };
struct InstallResult {
  InstallStep step;
  std::int32_t error = 0;
};

// Makes the first `length` bytes of `content` the record's file. After a failure the old file is as
// it was, except after kWrite if it was being written in place: the cache then no longer vouches
// for it.
[[nodiscard]] InstallResult InstallFile(const FileRecord& record, const DataBlock& content,
                                        std::size_t length);

// Removes the unfinished files of a killed process. For the start of a run, before the cache is
// loaded.
void DiscardUnfinishedFiles();

// Returns when all files that the run has installed would survive a power cut. False if the system
// failed to ensure that for one of them; no cache may vouch for any of them then.
[[nodiscard]] bool FlushInstalledFiles();

// Removes the notes that are only for the run after a killed process. For the end of a run, after
// its cache is saved.
void EndInstalling();

}  // namespace velmora
