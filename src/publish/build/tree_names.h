// The names of files and folders in a tree: how a list writes them, and which of them a patcher, a
// list or a web server can't handle. Pure.
#pragma once

#include <string>
#include <string_view>

#include "publish/common/disk_text.h"

namespace velmora::publish {

// A name as a list writes it, in code page 932.
struct ListName {
  std::string text;
  std::string fault;  // why there is no such form, ready for a sentence: `text` is a similar one
  // It is UTF-8 beyond ASCII, and nobody has said whether that's what it is meant to be.
  bool isGuessed = false;
};

// What to say then, and what the publisher can do.
inline constexpr char kNameIsGuessed[] = "has characters beyond ASCII in UTF-8";
inline constexpr char kWaysOutOfGuess[] =
    "--names utf-8 converts names to code page 932, as players' systems read them; --names bytes "
    "publishes their bytes as they are";

[[nodiscard]] ListName ListNameOf(std::string_view name, NameEncoding encoding);

struct NamePlace {
  bool isInRoot = false;  // of the tree
  bool isFile = false;
};

// All that is wrong with a name in code page 932, ready for a sentence. Empty if nothing is.
[[nodiscard]] std::string WhyNotPublishable(std::string_view name, NamePlace place);

// A similar name that nothing is wrong with, in any place.
[[nodiscard]] std::string PublishableName(std::string_view name);

}  // namespace velmora::publish
