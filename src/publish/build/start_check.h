// What players start with, checked before it is published: the patcher, its settings and the
// client.
#pragma once

#include <string>
#include <vector>

#include "publish/build/complaints.h"
#include "publish/build/publication.h"
#include "publish/build/source_tree.h"

namespace velmora::publish {

// The path with which each request begins, as the options or else the tree's settings say; empty if
// neither does. Fills the patcher's settings.
[[nodiscard]] std::string RequestedPath(const BuildOptions& options);

// Adds a complaint for each error that the options don't accept, and returns the warnings, ready
// for a terminal. `clientExe` is as the list names it. Fills the patcher's settings.
[[nodiscard]] std::vector<std::string> CheckStart(const std::vector<SourceFile>& files,
                                                  const std::string& clientExe,
                                                  const BuildOptions& options,
                                                  Complaints& complaints);

}  // namespace velmora::publish
