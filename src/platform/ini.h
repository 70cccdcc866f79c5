// Reads a value from a settings file in INI format.
#pragma once

#include <cstddef>
#include <string>

namespace velmora::platform {

// The value of `key` in `section` of the file, cut to `bufferSize` - 1 bytes; empty if the file,
// the section or the key is missing or unreadable.
//
// Section and key match without regard to case, and the first match of each counts. White space
// around section, key and value is ignored. One pair of quotes around the value, single or double,
// is dropped. A line that begins with a semicolon is a comment.
//
// A path without a directory means the Windows folder on Windows, the working directory elsewhere.
// Safe from any thread.
[[nodiscard]] std::string ReadIniValue(const std::string& path, const char* section,
                                       const std::string& key, std::size_t bufferSize);

}  // namespace velmora::platform
