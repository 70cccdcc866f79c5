#include "platform/posix/native_path.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/text.h"

namespace velmora::platform {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool EndsInHalfCharacter(std::string_view text) {
  std::string_view last;
  for (const std::string_view character : Characters(text)) last = character;
  return last.size() == 1 && IsLeadByte(last[0]);
}

// The length of the multi-byte UTF-8 character (RFC 3629) at `position`, 0 if there is none.
std::size_t Utf8Length(std::string_view text, std::size_t position) {
  const auto first = static_cast<unsigned char>(text[position]);
  const std::size_t length = first >= 0xF0 && first <= 0xF4   ? 4
                             : first >= 0xE0 && first <= 0xEF ? 3
                             : first >= 0xC2 && first <= 0xDF ? 2
                                                              : 0;
  if (position + length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((static_cast<unsigned char>(text[position + i]) & 0xC0) != 0x80) return 0;
  }
  return length;
}

// An absolute path starts with folders that this system has named, usually in UTF-8. Read as code
// page 932, the end of such a name could swallow the backslash after it.
std::size_t LengthOfCharacter(std::string_view text, std::size_t position) {
  const std::size_t length = text.front() == '/' ? Utf8Length(text, position) : 0;
  return length != 0 ? length : CharacterLength(text, position);
}

// A relative path of ASCII names between single separators, none of which begins with a dot, as
// nearly all paths of a list are. Only its separators differ from the native path.
bool IsPlain(std::string_view path) {
  bool beginsElement = true;
  for (const char c : path) {
    const bool separates = IsSeparator(c);
    if (c <= 0 || c == 0x7F || (beginsElement && (separates || c == '.'))) return false;
    beginsElement = separates;
  }
  return !path.empty();
}

std::string WithSlashes(std::string_view path) {
  std::string native(path);
  std::replace(native.begin(), native.end(), '\\', '/');
  return native;
}

}  // namespace

std::size_t FindCharacter(std::string_view text, std::string_view wanted, std::size_t from) {
  for (std::size_t i = from; i < text.size(); i += LengthOfCharacter(text, i)) {
    // A lead byte is never wanted, so the first byte decides.
    if (wanted.find(text[i]) != kNone) return i;
  }
  return kNone;
}

std::size_t FindLastCharacter(std::string_view text, std::string_view wanted) {
  // Where a character begins can only be told from the front.
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
  if (IsPlain(path)) return WithSlashes(path);
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
