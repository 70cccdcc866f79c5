// Downloads one file over the run's connection.
//
// The file is received into memory, checked against its transfer hash, and expanded if it is
// compressed. Only then is it installed (engine/install.h). Nothing is retried or resumed.
#pragma once

#include "engine/file_record.h"

namespace velmora {

// True when the file was installed and the pass goes on. False ends the pass: either a step failed,
// the player was told and UpdateState is kNotRunning, or the patcher or its settings file was
// replaced and RestartRequested is set. RequestHandle then stays open.
//
// A file and its transfer must each be smaller than 2 GiB, and both must fit into memory. Worker
// thread.
[[nodiscard]] bool DownloadFile(const FileRecord& record);

}  // namespace velmora
