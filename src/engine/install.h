// Installation of one downloaded and proved file: the old one stays whole until the new one is
// written, and is then replaced in one step. What the system doesn't let be replaced is written in
// place.
//
// A file comes into being in its own folder, under the name kUnfinishedFile, so that it gets the
// disk and the rights of its place. The folders in use stand in the file kUnfinishedFolders, one a
// line, so that the next run finds what a process that was killed has left.
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

// How an installation ended: well, or at which step, with the system's error.
enum class InstallStep { kDone, kDirectory, kCreate, kWrite };
struct InstallResult {
  InstallStep step;
  std::int32_t error = 0;
};

// Makes the first `length` bytes of `content` the record's file. After a failure of any step but
// kWrite the old file is as it was; after one of kWrite too, unless it was written in place, and
// then the cache no longer vouches for it.
[[nodiscard]] InstallResult InstallFile(const FileRecord& record, const DataBlock& content,
                                        std::size_t length);

// Removes what a process that was killed has left half done. For the start of a run, before the
// cache is loaded.
void DiscardUnfinishedFiles();

// Returns when all files that the run has installed would survive a loss of power. False if the
// system couldn't see to that for one of them; no cache may vouch for any of them then.
[[nodiscard]] bool FlushInstalledFiles();

// Removes what only a killed process needs to leave. For the end of a run, after its cache is
// saved.
void EndInstalling();

}  // namespace velmora
