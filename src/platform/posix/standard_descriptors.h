#pragma once

namespace velmora::platform {

// Opens the null device on each standard descriptor that is closed. Otherwise the next file to be
// opened would become the standard input or output.
void FillStandardDescriptors();

}  // namespace velmora::platform
