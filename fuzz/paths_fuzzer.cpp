// Three lines as a path, a wildcard pattern and a name: matching against a naive matcher, and what
// joining, splitting and the native spelling keep.
#include "harness.h"
#include "platform/paths.h"
#include "platform/posix/native_path.h"

namespace velmora::fuzz {
namespace {

using namespace platform;

std::vector<std::string> Characters(std::string_view text) {
  std::vector<std::string> characters;
  for (std::size_t i = 0; i < text.size(); i += characters.back().size()) {
    const bool isDouble = IsLeadByte(text[i]) && i + 1 < text.size() && IsTrailByte(text[i + 1]);
    characters.emplace_back(text.substr(i, isDouble ? 2 : 1));
  }
  return characters;
}

std::string Small(std::string character) {
  if (character.size() == 1 && character[0] >= 'A' && character[0] <= 'Z') character[0] |= 0x20;
  return character;
}

// By a table of which beginning of the pattern takes which beginning of the path.
bool NaivelyMatchesOne(std::string_view path, std::string_view pattern) {
  const std::vector<std::string> text = Characters(path);
  std::vector<bool> takes(text.size() + 1, false);
  takes[0] = true;
  for (const std::string& wanted : Characters(pattern)) {
    std::vector<bool> next(text.size() + 1, false);
    for (std::size_t i = 0; i <= text.size(); ++i) {
      if (wanted == "*") {
        next[i] = takes[i] || (i > 0 && next[i - 1]);
      } else if (i > 0) {
        next[i] = takes[i - 1] && (wanted == "?" || Small(wanted) == Small(text[i - 1]));
      }
    }
    takes = next;
  }
  return takes.back();
}

bool NaivelyMatches(std::string_view path, std::string_view pattern) {
  if (pattern == "*.*") return true;
  while (!pattern.empty()) {
    const std::size_t end = std::min(pattern.find(';'), pattern.size());
    std::string_view one = pattern.substr(0, end);
    while (one.starts_with(' ')) one.remove_prefix(1);
    if (NaivelyMatchesOne(path, one)) return true;
    pattern.remove_prefix(std::min(end + 1, pattern.size()));
  }
  return false;
}

void CheckJoin(const std::string& directory, const std::string& name) {
  const auto joined = JoinPath(directory, name);
  if (!joined) return;
  Require(joined->size() <= kMaxPath, "a joined path holds at most 259 bytes", *joined);
  Require(joined->ends_with(LastPathElement(*joined)), "the last element is an end", *joined);
  Require(joined->starts_with(WithoutLastPathElement(*joined)), "the rest a beginning", *joined);
}

void CheckNative(const std::string& path) {
  const std::string native = NativePath(path);
  const bool isNone = path.empty() || path.find('\0') != std::string::npos;
  Require(native.empty() == isNone, "a path without a zero byte is one", path);
  if (isNone) return;
  const bool startsAtRoot = path[0] == '\\' || path[0] == '/';
  Require(native.starts_with('/') == startsAtRoot, "only a root gives a root", path);
  if (startsAtRoot) return;
  Require(FindCharacter(native, "\\") == std::string::npos, "no backslash separates", native);
  Require(native.find("//") == std::string::npos, "no element is empty", native);
  Require(NativePath(native) == native, "a native path stays what it is", native);
  Require(NativePath(".\\" + path) == native, "\".\\\" in front changes nothing", path);
  bool isName = false;
  for (const std::string_view element : SplitPath(native, "/")) {
    Require(element != "." || native == "." || native == "./", "no element is \".\"", native);
    Require(element != ".." || !isName, "no \"..\" stands behind a name", native);
    isName = element != "..";
  }
}

}  // namespace

void CheckInput(std::string_view rest) {
  const std::string path(TakeLine(rest));
  const std::string pattern(TakeLine(rest));
  for (const std::string& tried : {pattern, path}) {
    Require(MatchPathPattern(path, tried) == NaivelyMatches(path, tried),
            "the match is a naive matcher's", path + " ~ " + tried);
  }
  CheckJoin(path, std::string(TakeLine(rest)));
  CheckNative(path);
}

}  // namespace velmora::fuzz
