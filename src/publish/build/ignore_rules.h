// Which files of a tree aren't published, by rules like those of .gitignore files. Pure.
//
// Each line is a rule. Empty lines and lines that begin with # are comments. Spaces at the end are
// dropped unless a backslash precedes them; a backslash makes any character literal.
//   !RULE      publishes what earlier rules ignore; the last rule that matches counts
//   RULE/      matches directories only
//   /RULE, A/B a slash anywhere but at the end ties the rule to the root; otherwise it matches in
//              every directory
//   * ? [a-z]  any text, any byte, one of a set ([!a-z]: none of it); none of them matches a slash
//   **/  /**   any number of directories, including none; everything below a directory
// Everything in an ignored directory is ignored, whatever the rules say about it. Matching compares
// bytes, so upper and lower case differ.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "publish/lint/acceptance.h"

namespace velmora::publish {

// The file in the root of a tree that holds its rules. Never published.
inline constexpr char kIgnoreName[] = ".publishignore";

class IgnoreRules {
 public:
  IgnoreRules() = default;  // ignore only kIgnoreName and kAcceptedName
  explicit IgnoreRules(std::string_view text);

  // Ignores this path whatever the rules say.
  void Add(std::string path);

  // Whether the rules ignore this file or directory itself; the directories above it don't count.
  // `path` is relative to the root, with slashes.
  [[nodiscard]] bool Ignores(const std::string& path, bool isDirectory) const;

 private:
  struct Rule {
    std::string pattern;
    bool publishes = false;
    bool directoriesOnly = false;
    bool fromRoot = false;
  };
  void AddRule(std::string_view line);

  std::vector<Rule> rules_;
  std::set<std::string> always_ = {kIgnoreName, kAcceptedName};
};

}  // namespace velmora::publish
