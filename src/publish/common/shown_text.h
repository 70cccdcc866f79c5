// Names and texts of a publication, which are bytes of code page 932, as the publisher's terminal
// and JSON (RFC 8259) take them.
#pragma once

#include <string>
#include <string_view>

namespace velmora::publish {

// `text` as UTF-8 on one line. What isn't code page 932, and every control character, becomes '?'.
[[nodiscard]] std::string ShownText(std::string_view text);

}  // namespace velmora::publish
