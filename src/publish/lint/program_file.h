// Whether players' systems start a file.
#pragma once

#include <filesystem>
#include <string>

namespace velmora::publish {

// What keeps a system from starting the file, in a few words: what it is instead, such as "a web
// page", or what is missing, such as "cut off: section .rsrc ends at byte 9216, the file has 8000".
// Empty for a complete program of Windows on i386 or x86-64 (PE), a complete program of Linux (ELF)
// and a script. Reads headers only, however large the file is.
[[nodiscard]] std::string WhyNotAProgram(const std::filesystem::path& path);

}  // namespace velmora::publish
