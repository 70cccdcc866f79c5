// Finds what patchers would stumble over in a reference list before they do.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "publish/common/disk_text.h"
#include "publish/lint/rules.h"

namespace velmora::publish {

struct LintOptions {
  // The settings' Data value, with which the path of every request begins.
  std::string dataPath;
  // What players have on their disks. Removals are tried on its files.
  std::optional<std::filesystem::path> tree;
  NameEncoding treeNames = NameEncoding::kGuess;
};

struct LintFinding {
  const LintRule* rule;
  std::size_t line;     // from 1; 0 for the list as a whole
  std::string subject;  // the path, or whatever else the line is about
  std::string detail;   // what the rule's own text doesn't say; may be empty
};

// All findings, in the order of the lines. Accepts any text. Throws PublishError if the tree can't
// be read.
[[nodiscard]] std::vector<LintFinding> LintList(std::string_view text, const LintOptions& options);

// The same for a list of FILE lines whose order doesn't matter.
[[nodiscard]] std::vector<LintFinding> LintFiles(std::string_view text);

}  // namespace velmora::publish
