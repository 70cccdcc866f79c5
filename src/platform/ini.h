// Reading of one value from a settings file in INI form.
#pragma once

#include <cstddef>
#include <string>

namespace velmora::platform {

// The value of `key` in `section` of the file, cut to `bufferSize` - 1 bytes; empty if the file,
// the section or the key is absent or can't be read.
//
// Section and key match without regard to case, and the first match of each wins. Blanks around
// section, key and value don't belong to them. One pair of quotes around the value, single or
// double, is dropped. A line that begins with a semicolon is a comment.
//
// A path without a directory part is taken as the system takes it: Windows looks into the Windows
// folder, other systems into the working directory. Safe from any thread.
[[nodiscard]] std::string ReadIniValue(const std::string& path, const char* section,
                                       const std::string& key, std::size_t bufferSize);

}  // namespace velmora::platform
