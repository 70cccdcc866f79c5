// The text of a reference list, in the best order for patchers.
#pragma once

#include <string>
#include <vector>

#include "engine/file_record.h"

namespace velmora::publish {

// Patchers move their own records to the front as they read them. So these come last, and of them
// the program's, which patchers then handle first. The other records keep their order. Of a
// removal only path and mode are used. Throws PublishError if the patcher's own parser doesn't read
// exactly these records from the text, the patcher's first.
[[nodiscard]] std::string ListText(const std::vector<FileRecord>& records,
                                   const std::vector<FileRecord>& removals,
                                   const std::string& clientExe);

}  // namespace velmora::publish
