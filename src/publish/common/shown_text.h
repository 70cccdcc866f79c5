// Names and texts of a publication, which are in code page 932, for the publisher's terminal and
// for JSON (RFC 8259).
#pragma once

#include <string>
#include <string_view>

namespace velmora::publish {

// `text` in UTF-8, on one line. Control characters, and bytes outside code page 932, become '?'.
[[nodiscard]] std::string ShownText(std::string_view text);

}  // namespace velmora::publish
