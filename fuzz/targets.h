// The fuzz targets. Each takes any bytes. One thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velmora::fuzz {

using Target = void(std::string_view input);

Target CheckCommandLine, CheckSettings, CheckPaths, CheckReferenceList, CheckVerifyCache,
    CheckIgnoreRules, CheckProgramFile, CheckDownload, CheckPayload, CheckZlibBlocks;

// Ends the process with a message unless `holds`. `detail` shows what the property failed for.
void Require(bool holds, std::string_view property, std::string_view detail);

// Takes everything up to `end` off `rest`, and `end` with it; all of `rest` if it has no `end`.
std::string_view TakeUntil(std::string_view end, std::string_view& rest);
// The lines of `text`, without their LF.
[[nodiscard]] std::vector<std::string_view> LinesOf(std::string_view text);

}  // namespace velmora::fuzz
