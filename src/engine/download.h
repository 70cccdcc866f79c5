// Download, proof and installation of one file over the run's connection.
//
// The file is received into memory, proved against its transfer hash, expanded if it is compressed,
// and only then installed (engine/install.h). Nothing is retried or resumed.
#pragma once

#include "engine/file_record.h"

namespace velmora {

// True when the file was installed and the pass goes on. False ends the pass: either a step failed,
// and then the player was told and UpdateState is kNotRunning; or the patcher or its settings file
// was replaced, and then RestartRequested is set. RequestHandle is left open on a false.
//
// A file and its transfer stay below 2 GiB each, and both must fit into memory. Worker thread.
[[nodiscard]] bool DownloadFile(const FileRecord& record);

}  // namespace velmora
