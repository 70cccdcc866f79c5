#include "platform/posix/native_path.h"

#include "base/text.h"

namespace velmora::platform {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool EndsInHalfCharacter(std::string_view text) {
  std::size_t last = 0;
  for (std::size_t i = 0; i < text.size(); i += CharacterLength(text, i)) last = i;
  return !text.empty() && last + 1 == text.size() && IsLeadByte(text[last]);
}

}  // namespace

std::size_t FindCharacter(std::string_view text, std::string_view wanted, std::size_t from) {
  for (std::size_t i = from; i < text.size(); i += CharacterLength(text, i)) {
    // A lead byte is never among the wanted, so the first byte decides.
    if (wanted.find(text[i]) != kNone) return i;
  }
  return kNone;
}

std::size_t FindLastCharacter(std::string_view text, std::string_view wanted) {
  // Only from the front can one tell where a character begins.
  std::size_t last = kNone;
  for (std::size_t i = FindCharacter(text, wanted); i != kNone;
       i = FindCharacter(text, wanted, i + 1)) {
    last = i;
  }
  return last;
}

std::vector<std::string_view> SplitPath(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> elements;
  std::size_t begin = 0;
  for (std::size_t end = FindCharacter(text, separators); end != kNone;
       end = FindCharacter(text, separators, begin)) {
    elements.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  elements.push_back(text.substr(begin));
  return elements;
}

void ResolveElements(std::vector<std::string_view>& elements, bool fromRoot) {
  std::vector<std::string_view> resolved;
  for (const std::string_view element : elements) {
    if (element.empty() || element == ".") continue;
    const bool hasParent = !resolved.empty() && resolved.back() != "..";
    if (element != ".." || (!hasParent && !fromRoot)) {
      resolved.push_back(element);
    } else if (hasParent) {
      resolved.pop_back();
    }
  }
  elements = std::move(resolved);
}

std::string JoinElements(const std::vector<std::string_view>& elements, char separator) {
  std::string joined;
  for (const std::string_view element : elements) {
    if (!joined.empty()) joined += separator;
    joined += element;
  }
  return joined;
}

std::string NativePath(std::string_view path) {
  if (path.empty() || path.find('\0') != kNone) return {};
  auto elements = SplitPath(path, kBackslashOrSlash);
  const bool fromRoot = elements.front().empty() && elements.size() > 1;
  const bool endsInSeparator = elements.back().empty();
  ResolveElements(elements, fromRoot);

  std::string native = fromRoot ? "/" : "";
  if (elements.empty()) return fromRoot ? native : ".";
  native += JoinElements(elements, '/');
  if (endsInSeparator) native += '/';
  return native;
}

bool CanBeElement(std::string_view name, bool isDirectory) {
  if (FindCharacter(name, kBackslash) != kNone) return false;
  return !isDirectory || !EndsInHalfCharacter(name);
}

}  // namespace velmora::platform
