#include "platform/paths.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/text.h"
#include "platform/posix/native_path.h"

namespace velmora::platform {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

std::string_view CharacterAt(std::string_view text, std::size_t position) {
  return text.substr(position, CharacterLength(text, position));
}

bool EqualCharacters(std::string_view a, std::string_view b) {
  if (a.size() == 1 && b.size() == 1) return LowerCase(a[0]) == LowerCase(b[0]);
  return a == b;
}

// Matches one pattern of a list. Backtracks only to the last asterisk, which is enough and limits
// the time to path length times pattern length.
bool MatchesOne(std::string_view path, std::string_view pattern) {
  std::size_t at = 0;
  std::size_t in = 0;
  std::size_t retryAt = 0;
  std::size_t retryIn = kNone;
  while (at < path.size()) {
    const std::string_view character = CharacterAt(path, at);
    const std::string_view wanted =
        in < pattern.size() ? CharacterAt(pattern, in) : std::string_view{};
    if (wanted == "*") {
      retryAt = at;
      retryIn = ++in;
    } else if (wanted == "?" || EqualCharacters(character, wanted)) {
      at += character.size();
      in += wanted.size();
    } else if (retryIn != kNone) {
      retryAt += CharacterLength(path, retryAt);
      at = retryAt;
      in = retryIn;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', in) == kNone;
}

std::string_view WithoutLeading(std::string_view text, char c) {
  while (!text.empty() && text.front() == c) text.remove_prefix(1);
  return text;
}

// The length of the root before the elements: "D:\", "D:", "\\" or "\".
std::size_t RootLength(std::string_view path) {
  const bool hasDrive = path.size() >= 2 && path[1] == ':';
  const std::size_t limit = std::min<std::size_t>(hasDrive ? 3 : 2, path.size());
  std::size_t length = hasDrive ? 2 : 0;
  while (length < limit && IsSeparator(path[length])) ++length;
  return length;
}

}  // namespace

std::optional<std::string> JoinPath(const std::string& directory, const std::string& name) {
  auto elements = SplitPath(directory, kBackslash);
  const bool fromRoot = elements.front().empty() && elements.size() > 1;
  elements.push_back(WithoutLeading(name, '\\'));
  ResolveElements(elements, fromRoot);
  std::string joined = (fromRoot ? "\\" : "") + JoinElements(elements, '\\');
  if (joined.size() > kMaxPath) return std::nullopt;
  return joined;
}

bool MatchPathPattern(const std::string& path, const std::string& pattern) {
  if (pattern == "*.*") return true;
  std::string_view rest = pattern;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(';'), rest.size());
    if (MatchesOne(path, WithoutLeading(rest.substr(0, end), ' '))) return true;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return false;
}

std::string LastPathElement(const std::string& path) {
  std::size_t begin = 0;
  for (std::size_t i = FindCharacter(path, "\\/:"); i != kNone;
       i = FindCharacter(path, "\\/:", i + 1)) {
    if (i + 1 < path.size() && !IsSeparator(path[i + 1])) begin = i + 1;
  }
  return path.substr(begin);
}

std::string WithoutLastPathElement(const std::string& path) {
  const std::size_t root = RootLength(path);
  const std::size_t last = FindLastCharacter(path, kBackslashOrSlash);
  return path.substr(0, last == kNone || last < root ? root : last);
}

}  // namespace velmora::platform
