// What players start with, checked before it is published: the patcher, its settings and the
// client.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "publish/build/complaints.h"
#include "publish/build/publication.h"
#include "publish/build/source_tree.h"

namespace velmora::publish {

// The path with which each request begins, as the options or else the tree's settings say; empty if
// neither does. Fills the patcher's settings.
[[nodiscard]] std::string RequestedPath(const BuildOptions& options);

struct StartFindings {
  std::vector<std::string> warnings;  // ready for a terminal
  std::size_t accepted = 0;           // findings, besides those and the complaints
};

// Adds a complaint for each error that neither the options nor the file of accepted findings
// accept. `clientExe` is as the list names it. Fills the patcher's settings. Throws PublishError if
// that file can't be read, or holds a line that is no entry.
[[nodiscard]] StartFindings CheckStart(const std::vector<SourceFile>& files,
                                       const std::string& clientExe, const BuildOptions& options,
                                       Complaints& complaints);

}  // namespace velmora::publish
