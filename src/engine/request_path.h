// What a patcher requests from the server to get the file of a record. Pure.
#pragma once

#include <optional>
#include <string>

#include "engine/file_record.h"

namespace velmora {

// A request path and its terminator have at most this many bytes, at each stage of its
// construction.
inline constexpr std::size_t kRequestPathBuffer = 260;

// `dataPath`, a slash, the record's path with a slash for each byte 0x5C and unsafe bytes escaped,
// and ".compressed" for a compressed record. Nothing if that is too long: cut short, it would name
// another file.
[[nodiscard]] std::optional<std::string> RequestPath(const std::string& dataPath,
                                                     const FileRecord& record);

}  // namespace velmora
