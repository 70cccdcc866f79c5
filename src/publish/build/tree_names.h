// The names of files and folders in a tree: which of them a patcher, a list or a web server can't
// handle. Pure.
#pragma once

#include <string>
#include <string_view>

namespace velmora::publish {

struct NamePlace {
  bool isInRoot = false;  // of the tree
  bool isFile = false;
};

// All that is wrong with the name, ready for a sentence. Empty if nothing is.
[[nodiscard]] std::string WhyNotPublishable(std::string_view name, NamePlace place);

// A similar name that nothing is wrong with, in any place.
[[nodiscard]] std::string PublishableName(std::string_view name);

}  // namespace velmora::publish
