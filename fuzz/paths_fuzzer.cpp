// Three lines as a path, a wildcard pattern and a name: matching against a naive matcher, and what
// joining, splitting and the native spelling keep.
#include "base/text.h"
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

void CheckMatch(const std::string& path, const std::string& pattern) {
  Require(MatchPathPattern(path, pattern) == NaivelyMatches(path, pattern),
          "the match is a naive matcher's", path + " ~ " + pattern);
}

bool EndsInHalfCharacter(std::string_view text) {
  const std::vector<std::string> characters = Characters(text);
  return !text.empty() && characters.back().size() == 1 && IsLeadByte(text.back());
}

// Paths from this system's root are read in UTF-8 as far as they go, and are left aside.
bool IsFromRoot(std::string_view path) { return path.starts_with('/'); }

void CheckJoin(const std::string& directory, const std::string& name) {
  const auto joined = JoinPath(directory, name);
  if (!joined) return;
  Require(joined->size() <= kMaxPath, "a joined path holds at most 259 bytes", *joined);
  if (IsFromRoot(directory) || IsFromRoot(*joined)) return;
  const auto alone = JoinPath(directory, "");
  const bool isPlainName = !name.empty() && name != "." && name != ".." &&
                           CanBeElement(name, false) && name.find('/') == std::string::npos &&
                           name.find(':') == std::string::npos;
  if (!alone || !isPlainName) return;
  Require(JoinPath(*alone, "") == alone, "joining what was joined changes nothing", *alone);
  if (EndsInHalfCharacter(*alone) || alone->find('/') != std::string::npos) return;
  Require(JoinPath(*alone, name) == joined, "a directory worked out first is the same directory",
          *joined);
  const bool isDrive = alone->size() == 2 && alone->back() == ':';
  if (alone->empty() || *alone == "\\" || isDrive) return;  // roots keep their separator
  Require(*joined == *alone + '\\' + name, "one backslash stands between", *joined);
  Require(LastPathElement(*joined) == name, "the name comes back", *joined);
  Require(WithoutLastPathElement(*joined) == *alone, "the directory comes back", *joined);
}

void CheckElements(const std::string& path) {
  Require(path.ends_with(LastPathElement(path)), "the last element stands at the end", path);
  Require(path.starts_with(WithoutLastPathElement(path)), "what is in front of it is a beginning",
          path);
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
}  // namespace velmora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora::fuzz;
  std::string_view rest = TextOf(data, size);
  const std::string path(TakeLine(rest));
  const std::string pattern(TakeLine(rest));
  const std::string name(TakeLine(rest));
  CheckMatch(path, pattern);
  CheckMatch(path, path);
  CheckJoin(path, name);
  CheckElements(path);
  CheckNative(path);
  return 0;
}
