// What a patcher asks the server for when it needs the file of a record. Pure.
#pragma once

#include <optional>
#include <string>

#include "engine/file_record.h"

namespace velmora {

// A request path and its terminator have at most this many bytes, at every stage of its making.
inline constexpr std::size_t kRequestPathBuffer = 260;

// `dataPath`, a slash, the record's path with each byte 0x5C turned into a slash and unsafe bytes
// escaped, and ".compressed" for a compressed record. Nothing if that doesn't fit: cut short, it
// would name another file.
[[nodiscard]] std::optional<std::string> RequestPath(const std::string& dataPath,
                                                     const FileRecord& record);

}  // namespace velmora
