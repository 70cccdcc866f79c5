// Lines of paths, an empty line, and any bytes as the rules: single rules against the C library's
// matcher where both mean the same, and rules together against rules alone.
#include <fnmatch.h>

#include <algorithm>

#include "harness.h"
#include "publish/ignore_rules.h"

namespace velmora::fuzz {
namespace {

using publish::IgnoreRules;

constexpr std::size_t kLongestText = 256;
constexpr std::size_t kMostRules = 64;

bool IsAlwaysIgnored(const std::string& path) { return path == publish::kIgnoreName; }

// A path's own name, every character escaped.
std::string Literal(const std::string& path) {
  std::string rule = "/";
  for (const char c : path) rule += {'\\', c};
  return rule;
}

void CheckLiteral(const std::string& path) {
  const bool canBeRule = !path.empty() && path.find_first_of("\n\r") == std::string::npos &&
                         !path.ends_with('/') && !path.starts_with('/');
  if (!canBeRule) return;
  const std::string rule = Literal(path);
  Require(IgnoreRules(rule).Ignores(path, false), "an escaped path ignores itself", path);
  Require(!IgnoreRules(rule).Ignores(path + 'x', false) || IsAlwaysIgnored(path + 'x'),
          "and nothing else", path);
  Require(!IgnoreRules(rule + "/").Ignores(path, false) || IsAlwaysIgnored(path),
          "a rule for directories leaves files", path);
  Require(IgnoreRules("*\n!" + rule).Ignores(path, false) == IsAlwaysIgnored(path),
          "what is taken back isn't ignored", path);
}

// Rules of stars, question marks and escapes, without two stars beside each other.
bool MeansTheSame(std::string_view rule) {
  const bool isPlain = !rule.empty() && rule.find_first_of("[#!\r") == std::string_view::npos &&
                       rule.find("**") == std::string_view::npos && !rule.ends_with(' ') &&
                       !rule.ends_with('/') && !rule.starts_with("\xEF\xBB\xBF");
  return isPlain && rule != "/" && std::count(rule.begin(), rule.end(), '*') <= 4;
}

void CheckAgainstLibrary(const std::string& rule, const std::string& path) {
  const bool isText = (rule + path).find('\0') == std::string::npos;
  if (!MeansTheSame(rule) || !isText || IsAlwaysIgnored(path)) return;
  const std::string name = path.substr(path.rfind('/') + 1);
  const bool isTied = rule.find('/') != std::string::npos;
  const std::string pattern = rule.substr(rule.starts_with('/') ? 1 : 0);
  const bool matches = fnmatch(pattern.c_str(), (isTied ? path : name).c_str(), FNM_PATHNAME) == 0;
  Require(IgnoreRules(rule).Ignores(path, false) == matches, "a rule matches as the C library's",
          rule + " ~ " + path);
}

// The last rule that matches counts. Whether one matches shows when it stands alone.
void CheckTogether(const std::vector<std::string_view>& rules, std::string_view text,
                   const std::string& path, bool isDirectory) {
  bool isIgnored = false;
  for (const std::string_view rule : rules) {
    const bool takesBack = rule.starts_with('!');
    const std::string alone(rule.substr(takesBack ? 1 : 0));
    // Without the mark in front, what follows may mean something in that place.
    if (takesBack && alone.find_first_of("#!") == 0) return;
    if (IgnoreRules(alone).Ignores(path, isDirectory)) isIgnored = !takesBack;
  }
  Require(IgnoreRules(text).Ignores(path, isDirectory) == (isIgnored || IsAlwaysIgnored(path)),
          "the last rule that matches counts", path);
}

}  // namespace
}  // namespace velmora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora::fuzz;
  std::string_view rest = TextOf(data, size);
  std::vector<std::string> paths;
  while (!rest.empty() && paths.size() < 4) {
    const std::string_view path = TakeLine(rest);
    if (path.empty()) break;
    paths.emplace_back(path.substr(0, kLongestText));
  }
  const std::vector<std::string_view> rules = LinesOf(rest);
  // A mark in front of the text is none of the first rule; a rule that stands alone is a text.
  const bool isMarked = rest.find("\xEF\xBB\xBF") != std::string_view::npos;
  const bool isSmall = rules.size() <= kMostRules &&
                       std::all_of(rules.begin(), rules.end(), [](std::string_view rule) {
                         return rule.size() <= kLongestText;
                       });
  if (!isSmall) return 0;
  for (const std::string& path : paths) {
    CheckLiteral(path);
    for (const std::string_view rule : rules) CheckAgainstLibrary(std::string(rule), path);
    if (isMarked || IsAlwaysIgnored(path)) continue;
    CheckTogether(rules, rest, path, false);
    CheckTogether(rules, rest, path, true);
  }
  return 0;
}
