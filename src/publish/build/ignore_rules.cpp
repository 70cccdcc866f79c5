#include "publish/build/ignore_rules.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <optional>
#include <utility>

#include "base/ascii.h"

namespace velmora::publish {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

struct CharacterClass {
  std::string_view name;
  int (*holds)(int);
};

constexpr std::array<CharacterClass, 12> kClasses = {{{"alnum", std::isalnum},
                                                      {"alpha", std::isalpha},
                                                      {"blank", std::isblank},
                                                      {"cntrl", std::iscntrl},
                                                      {"digit", std::isdigit},
                                                      {"graph", std::isgraph},
                                                      {"lower", std::islower},
                                                      {"print", std::isprint},
                                                      {"punct", std::ispunct},
                                                      {"space", std::isspace},
                                                      {"upper", std::isupper},
                                                      {"xdigit", std::isxdigit}}};

// Matches one pattern against one path. Remembers which stars failed at which positions, so that
// the time is at most proportional to the pattern's length times the square of the path's.
class Match {
 public:
  Match(std::string_view pattern, std::string_view path)
      : pattern_(pattern), path_(path), failed_(pattern.size() * (path.size() + 1)) {}

  bool From(std::size_t p, std::size_t t) {
    while (p < pattern_.size()) {
      if (pattern_[p] == '*') return Star(p, t);
      if (t == path_.size() || !One(p, path_[t])) return false;
      ++t;
    }
    return t == path_.size();
  }

 private:
  // Whether the element of the pattern at `p`, which is no star, matches `c`. Moves `p` past it.
  bool One(std::size_t& p, char c) {
    const char element = pattern_[p++];
    if (element == '?') return c != '/';
    if (element == '[') return Set(p, c) && c != '/';
    if (element != '\\') return element == c;
    return p < pattern_.size() && pattern_[p++] == c;
  }

  // `p` is just after the opening bracket. A set that isn't closed matches nothing.
  bool Set(std::size_t& p, char c) {
    const bool isNegated = p < pattern_.size() && (pattern_[p] == '!' || pattern_[p] == '^');
    if (isNegated) ++p;
    bool isMatched = false;
    for (bool isFirst = true; isFirst || Peek(p) != ']'; isFirst = false) {
      if (const std::optional<bool> inClass = Class(p, c)) {
        isMatched = isMatched || *inClass;
        continue;
      }
      const auto low = SetCharacter(p);
      if (!low) return false;
      auto high = low;
      if (Peek(p) == '-' && p + 1 < pattern_.size() && pattern_[p + 1] != ']')
        high = SetCharacter(++p);
      if (!high) return false;
      const auto byte = static_cast<unsigned char>(c);
      isMatched = isMatched || (*low <= byte && byte <= *high);
    }
    ++p;
    return isMatched != isNegated;
  }

  // Whether the class at `p`, such as [:digit:], contains `c`; nothing if there is no class.
  std::optional<bool> Class(std::size_t& p, char c) const {
    if (pattern_.substr(p, 2) != "[:") return std::nullopt;
    const std::size_t end = pattern_.find(":]", p + 2);
    if (end == kNone) return std::nullopt;
    const std::string_view name = pattern_.substr(p + 2, end - p - 2);
    const auto* found = std::find_if(kClasses.begin(), kClasses.end(),
                                     [name](const CharacterClass& k) { return k.name == name; });
    if (found == kClasses.end()) return std::nullopt;
    p = end + 2;
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x80 && found->holds(byte) != 0;
  }

  std::optional<unsigned char> SetCharacter(std::size_t& p) const {
    if (Peek(p) == '\\') ++p;
    if (p >= pattern_.size()) return std::nullopt;
    return static_cast<unsigned char>(pattern_[p++]);
  }

  // NUL at the end.
  char Peek(std::size_t p) const { return p < pattern_.size() ? pattern_[p] : '\0'; }

  bool Star(std::size_t p, std::size_t t) {
    const std::size_t mark = p * (path_.size() + 1) + t;
    if (failed_[mark]) return false;
    const std::size_t after = std::min(pattern_.find_first_not_of('*', p), pattern_.size());
    const bool isEnd = after == pattern_.size();
    // Two stars that form a whole name also match slashes.
    const bool isDeep =
        after - p >= 2 && (p == 0 || pattern_[p - 1] == '/') && (isEnd || pattern_[after] == '/');
    const std::size_t limit = isDeep ? path_.size() : std::min(path_.find('/', t), path_.size());
    if (isEnd) return limit == path_.size();
    if (isDeep && From(after + 1, t)) return true;
    for (; t <= limit; ++t) {
      if (From(after, t)) return true;
    }
    failed_[mark] = true;
    return false;
  }

  std::string_view pattern_;
  std::string_view path_;
  std::vector<bool> failed_;
};

std::string_view WithoutTrailingSpaces(std::string_view line) {
  std::size_t length = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const bool isEscaped = line[i] == '\\' && i + 1 < line.size();
    if (isEscaped) ++i;
    if (isEscaped || line[i] != ' ') length = i + 1;
  }
  return line.substr(0, length);
}

}  // namespace

IgnoreRules::IgnoreRules(std::string_view text) {
  text = WithoutByteOrderMark(text);
  while (!text.empty()) {
    const std::size_t length = std::min(text.find('\n'), text.size());
    AddRule(text.substr(0, length));
    text.remove_prefix(std::min(length + 1, text.size()));
  }
}

void IgnoreRules::AddRule(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (line.starts_with('#')) return;
  line = WithoutTrailingSpaces(line);
  Rule rule;
  rule.publishes = line.starts_with('!');
  if (rule.publishes) line.remove_prefix(1);
  rule.directoriesOnly = line.ends_with('/');
  if (rule.directoriesOnly) line.remove_suffix(1);
  rule.fromRoot = line.find('/') != kNone;
  if (line.starts_with('/')) line.remove_prefix(1);
  if (line.empty()) return;
  rule.pattern = line;
  rules_.push_back(std::move(rule));
}

void IgnoreRules::Add(std::string path) { always_.insert(std::move(path)); }

bool IgnoreRules::Ignores(const std::string& path, bool isDirectory) const {
  if (always_.contains(path)) return true;
  const std::string_view name = std::string_view(path).substr(path.rfind('/') + 1);
  const auto last = std::find_if(rules_.rbegin(), rules_.rend(), [&](const Rule& rule) {
    return (isDirectory || !rule.directoriesOnly) &&
           Match(rule.pattern, rule.fromRoot ? path : name).From(0, 0);
  });
  return last != rules_.rend() && !last->publishes;
}

}  // namespace velmora::publish
