// What stands beside the bars: amounts, the download rate and the times left. Pure functions.
#pragma once

#include <string>
#include <vector>

#include "platform/posix/dialog/figures.h"
#include "platform/posix/dialog/model.h"

namespace velmora::platform::dialog {

using Details = std::vector<std::string>;  // ASCII; the most important first

[[nodiscard]] Details FileDetails(const Bar& bar, const Figures& figures);
[[nodiscard]] Details OverallDetails(const Bar& bar, const Figures& figures);

}  // namespace velmora::platform::dialog
