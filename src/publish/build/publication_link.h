// The symbolic link that a web server follows to the publication that players get.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "publish/build/changes.h"

namespace velmora::publish {

struct SwitchedLink {
  std::filesystem::path before;    // what it led to; empty if it is new
  std::filesystem::path now;       // relative to the link's folder
  std::optional<Changes> changes;  // since the publication before, if there was one
};

// Lets `link`, which is a symbolic link or doesn't exist, lead to the folder `publication`, in one
// step: at each moment the link leads to the one before or to the new one. Throws PublishError,
// and changes nothing, if players would miss a file of the new one. Returns when a power cut would
// change nothing any more.
SwitchedLink SwitchLink(const std::filesystem::path& link, const std::filesystem::path& publication,
                        const std::string& listName);

}  // namespace velmora::publish
