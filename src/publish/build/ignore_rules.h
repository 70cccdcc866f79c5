// What of a tree isn't published, by rules in the manner of .gitignore files. Pure.
//
// One rule a line. Blank lines and lines that begin with # say nothing; blanks at the end don't
// count unless a backslash stands in front; a backslash in front of any character takes away its
// meaning.
//   !RULE      takes back what rules above have ignored; the last rule that matches counts
//   RULE/      matches directories alone
//   /RULE, A/B a slash anywhere but at the end ties the rule to the root; without one it matches in
//              every directory
//   * ? [a-z]  any text, any byte, one of a set ([!a-z] none of it); none of them matches a slash
//   **/  /**   any directories, none included; everything below a directory
// What lies in an ignored directory is ignored whatever the rules say of it. Matching is by bytes,
// so capitals and small letters differ.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace velmora::publish {

// The rules of a tree, in its root; never published itself.
inline constexpr char kIgnoreName[] = ".publishignore";

class IgnoreRules {
 public:
  IgnoreRules() = default;  // only kIgnoreName
  explicit IgnoreRules(std::string_view text);

  // Ignores this path, whatever the rules say.
  void Add(std::string path);

  // Whether a file or directory is ignored for itself. `path` is relative to the root, with
  // slashes; the directories above it aren't looked at.
  [[nodiscard]] bool Ignores(const std::string& path, bool isDirectory) const;

 private:
  struct Rule {
    std::string pattern;
    bool takesBack = false;
    bool directoriesOnly = false;
    bool fromRoot = false;
  };
  void AddRule(std::string_view line);

  std::vector<Rule> rules_;
  std::set<std::string> always_ = {kIgnoreName};
};

}  // namespace velmora::publish
