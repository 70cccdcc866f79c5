// Lines of paths, an empty line, and any bytes as the rules: single rules against the C library's
// matcher where both mean the same, and rules together against rules alone.
#include <fnmatch.h>

#include "harness.h"
#include "publish/build/ignore_rules.h"

namespace velmora::fuzz {
namespace {

using publish::IgnoreRules;

constexpr std::size_t kLongestText = 256;
constexpr std::size_t kMostRules = 64;
constexpr std::string_view kMark = "\xEF\xBB\xBF";

bool Ignores(std::string_view rules, const std::string& path, bool isDirectory = false) {
  return IgnoreRules(rules).Ignores(path, isDirectory);
}

// For rules of stars, question marks and escapes, without two stars beside each other.
void CheckAgainstLibrary(const std::string& rule, const std::string& path) {
  const bool meansTheSame =
      !rule.empty() && rule != "/" && !rule.ends_with(' ') && !rule.ends_with('/') &&
      !rule.starts_with(kMark) && rule.find_first_of("[#!\r") == std::string::npos &&
      rule.find("**") == std::string::npos && std::count(rule.begin(), rule.end(), '*') <= 4;
  if (!meansTheSame || (rule + path).find('\0') != std::string::npos) return;
  const bool isTied = rule.find('/') != std::string::npos;
  const std::string text = isTied ? path : path.substr(path.rfind('/') + 1);
  const char* const pattern = rule.c_str() + (rule.starts_with('/') ? 1 : 0);
  Require(Ignores(rule, path) == (fnmatch(pattern, text.c_str(), FNM_PATHNAME) == 0),
          "a rule matches as the C library's", rule + " ~ " + path);
}

// The last rule that matches counts. Whether one matches shows when it stands alone.
void CheckTogether(std::string_view text, const std::string& path, bool isDirectory) {
  // A mark in front of the text is none of the first rule; a rule that stands alone is a text.
  if (text.find(kMark) != std::string_view::npos) return;
  bool isIgnored = false;
  for (const std::string_view rule : LinesOf(text)) {
    const bool takesBack = rule.starts_with('!');
    const std::string_view alone = rule.substr(takesBack ? 1 : 0);
    // Without the mark in front, what follows may mean something in that place.
    if (takesBack && alone.find_first_of("#!") == 0) return;
    if (Ignores(alone, path, isDirectory)) isIgnored = !takesBack;
  }
  Require(Ignores(text, path, isDirectory) == isIgnored, "the last rule that matches counts", path);
}

}  // namespace

void CheckInput(std::string_view rest) {
  std::vector<std::string> paths;
  while (!rest.empty() && paths.size() < 4) {
    const std::string_view path = TakeLine(rest);
    if (path.empty()) break;
    paths.emplace_back(path.substr(0, kLongestText));
  }
  const std::vector<std::string_view> rules = LinesOf(rest);
  const auto isLong = [](std::string_view rule) { return rule.size() > kLongestText; };
  if (rules.size() > kMostRules || std::any_of(rules.begin(), rules.end(), isLong)) return;
  for (const std::string& path : paths) {
    if (path == publish::kIgnoreName) continue;  // always ignored
    for (const std::string_view rule : rules) CheckAgainstLibrary(std::string(rule), path);
    for (const bool isDirectory : {false, true}) CheckTogether(rest, path, isDirectory);
  }
}

}  // namespace velmora::fuzz
