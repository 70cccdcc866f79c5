// Finds what patchers would stumble over before they do: in a reference list, and in the patcher
// and the settings that players start with.
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
  // The path with which every request begins, which the settings should have as Data. Nothing:
  // whatever the settings have.
  std::optional<std::string> dataPath = std::nullopt;
  // What players have on their disks. Removals are tried on its files.
  std::optional<std::filesystem::path> tree = std::nullopt;
  NameEncoding treeNames = NameEncoding::kGuess;
  // A settings file, besides the one in the tree.
  std::optional<std::filesystem::path> settings = std::nullopt;
  // The name by which players ask for the list. Empty: it isn't known.
  std::string listName = {};
};

// A file of a tree that players get.
struct TreeFile {
  std::filesystem::path path;  // where it is read
  std::string listPath;        // as a list has it
};

struct LintFinding {
  const LintRule* rule;
  std::size_t line;     // from 1; 0 for the file as a whole
  std::string subject;  // the path, the key, or whatever else the line is about
  std::string detail;   // what the rule's own text doesn't say; may be empty
  // The file that the line is in, or that the finding is about. Empty: the list.
  std::filesystem::path file = {};
};

// The findings are in the order of the lines, those of the list first. These functions accept any
// text and any file. They are for the main thread, since they fill the patcher's settings.

// Throws PublishError if the tree can't be read.
[[nodiscard]] std::vector<LintFinding> LintList(std::string_view text, const LintOptions& options);

// What is wrong with the tree and the settings by themselves. Throws PublishError if the tree can't
// be read.
[[nodiscard]] std::vector<LintFinding> LintWithoutList(const LintOptions& options);

// The same for the files of a tree, and for the client that their list names; empty if it names
// none.
[[nodiscard]] std::vector<LintFinding> LintStart(const std::vector<TreeFile>& files,
                                                 const std::string& clientExe,
                                                 const LintOptions& options);

// What is wrong with a list of FILE lines whose order doesn't matter.
[[nodiscard]] std::vector<LintFinding> LintFiles(std::string_view text,
                                                 const std::string& dataPath);

}  // namespace velmora::publish
