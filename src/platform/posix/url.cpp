#include "platform/url.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/text.h"

namespace velmora::platform {

namespace {

constexpr std::size_t kMaxPartLength = 999;

constexpr std::size_t kNone = std::string_view::npos;

bool IsAlphanumeric(char c) {
  const char lower = LowerCase(c);
  return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9');
}

bool IsSchemeCharacter(char c) { return IsAlphanumeric(c) || c == '+' || c == '-' || c == '.'; }

std::uint16_t DefaultPort(std::string_view scheme) {
  if (EqualWithoutCase(scheme, "http")) return 80;
  if (EqualWithoutCase(scheme, "https")) return 443;
  if (EqualWithoutCase(scheme, "ftp")) return 21;
  return 0;
}

struct Halves {
  std::string_view before;
  std::string_view after;
};

// Splits `text` at `position`, which may be npos. The byte there belongs to neither half.
Halves SplitAt(std::string_view text, std::size_t position) {
  if (position == kNone) return {text, {}};
  return {text.substr(0, position), text.substr(position + 1)};
}

// [user[:password]@]host[:port]
void SplitAuthority(std::string_view authority, UrlParts& parts) {
  const std::size_t at = authority.find('@');
  if (at != kNone) {
    const std::string_view account = authority.substr(0, at);
    const auto [user, password] = SplitAt(account, account.rfind(':'));
    parts.user = user;
    parts.password = password;
    authority.remove_prefix(at + 1);
  }
  const auto [host, port] = SplitAt(authority, authority.rfind(':'));
  parts.host = host;
  parts.port = host.size() == authority.size() ? DefaultPort(parts.scheme)
                                               : static_cast<std::uint16_t>(ToNumber(port));
}

bool FitsBuffers(const UrlParts& parts) {
  const auto fits = [](const std::string& part) { return part.size() <= kMaxPartLength; };
  return fits(parts.scheme) && fits(parts.host) && fits(parts.user) && fits(parts.password) &&
         fits(parts.path) && fits(parts.extra);
}

bool IsSpace(char c) { return c == ' '; }

// Bytes that a request line can't contain, or that may be changed on the way. The percent sign
// isn't one of them, so what is already escaped stays as it is.
bool IsUnsafe(char c) {
  const auto byte = static_cast<unsigned char>(c);
  constexpr std::string_view kUnsafe = "<>\"{}|\\^[]`&";
  return byte <= 0x20 || byte >= 0x7F || kUnsafe.find(c) != kNone;
}

// [//authority]path
void SplitAuthorityAndPath(std::string_view text, UrlParts& parts) {
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const std::size_t slash = std::min(text.find('/'), text.size());
    SplitAuthority(text.substr(0, slash), parts);
    text.remove_prefix(slash);
  }
  parts.path = text;
}

// A URL from a file ends at the end of its line.
void CutAtLineFeed(std::string& path) { path.resize(std::min(path.find('\n'), path.size())); }

}  // namespace

std::optional<UrlParts> CrackUrl(const std::string& url) {
  const std::string_view text = url.c_str();  // a URL ends at a zero byte, as Windows sees it
  const auto colon = std::find_if_not(text.begin(), text.end(), IsSchemeCharacter);
  if (colon == text.begin() || colon == text.end() || *colon != ':') return std::nullopt;

  UrlParts parts;
  parts.scheme.assign(text.begin(), colon);
  const std::string_view rest = text.substr(parts.scheme.size() + 1);
  const std::size_t extra = std::min(rest.find_first_of("?#"), rest.size());
  parts.extra = rest.substr(extra);
  SplitAuthorityAndPath(rest.substr(0, extra), parts);
  if (parts.extra.empty()) CutAtLineFeed(parts.path);
  if (!FitsBuffers(parts)) return std::nullopt;
  return parts;
}

std::optional<std::string> CanonicalizeUrlPath(const std::string& path, Canonicalize mode,
                                               std::size_t bufferSize) {
  const bool spacesOnly = mode == Canonicalize::kSpacesOnly;
  std::string canonical = Escaped(path, spacesOnly ? IsSpace : IsUnsafe);
  if (canonical.size() >= bufferSize) return std::nullopt;
  return canonical;
}

}  // namespace velmora::platform
