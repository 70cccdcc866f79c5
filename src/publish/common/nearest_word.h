// Proposes what somebody may have meant by a word that isn't known.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velmora::publish {

// The known word that is most like `word`, upper and lower case being the same; the first of
// several. Empty if none is like it.
[[nodiscard]] std::string NearestWord(std::string_view word, const std::vector<std::string>& known);

}  // namespace velmora::publish
