// Which findings a publisher has looked at and accepts, so that a pipeline stops only at new ones.
//
// The file of accepted findings has one entry on each line:
//   RULE [PATH] # REASON
// A rule's number, then the path that the finding is about, as the list or a removal spells it or
// as the disk does; or a pattern, as removals have them, such as data\*.old. Without a path, every
// finding of the rule is accepted. The reason is for the next reader, and can't be left out. Empty
// lines and lines that begin with # mean nothing.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "publish/lint/lint.h"

namespace velmora::publish {

// The file in the root of a tree, or next to the tree. Never published.
inline constexpr char kAcceptedName[] = ".publishlint";

// The one that goes with this tree: in it, or else in the folder that contains it.
[[nodiscard]] std::optional<std::filesystem::path> AcceptedFile(const std::filesystem::path& tree);

// An entry that accepts nothing.
struct StaleEntry {
  std::size_t line;
  std::string text;  // the rule and the path
};

class Acceptance {
 public:
  Acceptance() = default;  // of nothing
  // The entries of a file. Throws PublishError, with the file's name and the line's number, for a
  // line that isn't one.
  Acceptance(std::string_view text, const std::string& name);

  void Add(Rule rule);

  // Whether the finding is accepted. Remembers the entry that does it.
  [[nodiscard]] bool Accepts(const LintFinding& finding);
  // Removes the findings that are accepted, and returns how many they are.
  std::size_t RemoveFrom(std::vector<LintFinding>& findings);

  // The entries of the file, for rules that were checked, that have accepted nothing.
  [[nodiscard]] std::vector<StaleEntry> Stale(const std::function<bool(Rule)>& isChecked) const;

 private:
  struct Entry {
    Rule rule;
    std::string path;  // or pattern, in code page 932; empty: any
    std::size_t line;  // 0: added by itself
    bool isUsed = false;
  };
  void AddEntry(std::string_view line, std::size_t number);

  std::vector<Entry> entries_;
};

}  // namespace velmora::publish
