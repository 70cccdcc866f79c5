// The text of a reference list, written so that a patcher works through it in the best order.
#pragma once

#include <string>
#include <vector>

#include "engine/file_record.h"

namespace velmora::publish {

// The patcher's own records stand last, and of them the program file, so that a patcher, which
// takes such records to the front as it meets them, deals with them first. The other records keep
// their order. Of a removal path and mode count. Throws PublishError if the patcher's own parser
// doesn't read exactly these records from the text, with the patcher's in front.
[[nodiscard]] std::string ListText(const std::vector<FileRecord>& records,
                                   const std::vector<FileRecord>& removals,
                                   const std::string& clientExe);

}  // namespace velmora::publish
