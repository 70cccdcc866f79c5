// Any text as a URL, and as the path of a request.
#include "base/text.h"
#include "engine/request_path.h"
#include "harness.h"
#include "platform/url.h"

namespace velmora::fuzz {
namespace {

using platform::Canonicalize;
using platform::CanonicalizeUrlPath;
using platform::CrackUrl;
using platform::UrlParts;

void CheckParts(const UrlParts& parts, std::string_view url) {
  url = url.substr(0, url.find('\0'));
  std::size_t at = 0;
  for (const std::string& part :
       {parts.scheme, parts.user, parts.password, parts.host, parts.path, parts.extra}) {
    Require(part.size() <= 999, "a part holds at most 999 bytes", part);
    at = url.find(part, at);
    Require(at != std::string_view::npos, "the parts stand in the URL in their order", part);
    at += part.size();
  }
  Require(!parts.scheme.empty(), "there is a scheme", url);
  Require(parts.path.find_first_of("?#") == std::string::npos, "a path ends at ? and #", url);
  Require(parts.extra.empty() || parts.extra[0] == '?' || parts.extra[0] == '#',
          "query and fragment have their first character", url);
  Require(parts.host.find('/') == std::string::npos, "a host ends at a slash", url);
  Require(parts.host.empty() || parts.path.empty() || parts.path[0] == '/',
          "behind a host, a path begins with a slash", url);
}

// The parts put together again split into the same parts.
void CheckPutTogether(const UrlParts& parts) {
  if (parts.host.empty()) return;
  const std::string url = parts.scheme + "://" + parts.user + ':' + parts.password + '@' +
                          parts.host + ':' + std::to_string(parts.port) + parts.path + parts.extra;
  const auto again = CrackUrl(url);
  Require(again.has_value(), "the parts make a URL", url);
  Require(again->scheme == parts.scheme && again->user == parts.user &&
              again->password == parts.password && again->host == parts.host &&
              again->port == parts.port && again->path == parts.path && again->extra == parts.extra,
          "the parts put together split into the same parts", url);
}

bool IsSafe(char c) {
  return c > 0x20 && c < 0x7F && std::string_view("<>\"{}|\\^[]`&").find(c) == std::string::npos;
}

std::string NaivelyEscaped(const std::string& path, Canonicalize mode) {
  std::string escaped;
  for (const char c : path) {
    const bool stays = mode == Canonicalize::kUnsafe ? IsSafe(c) : c != ' ';
    escaped += stays ? std::string(1, c) : FormatText("%%%02X", static_cast<unsigned char>(c));
  }
  return escaped;
}

void CheckCanonical(const std::string& path, Canonicalize mode, std::size_t bufferSize) {
  const auto canonical = CanonicalizeUrlPath(path, mode, bufferSize);
  const std::string expected = NaivelyEscaped(path, mode);
  Require(canonical.has_value() == (expected.size() < bufferSize),
          "a path is refused exactly if it doesn't fit", path);
  if (!canonical) return;
  Require(*canonical == expected, "what is escaped", path);
  Require(CanonicalizeUrlPath(*canonical, mode, bufferSize) == canonical,
          "canonicalising twice changes nothing", path);
}

void CheckRequestPath(const std::string& dataPath, const std::string& path, bool compressed) {
  FileRecord record;
  record.path = path;
  record.compressed = compressed;
  const auto request = RequestPath(dataPath, record);
  if (!request) return;
  Require(request->size() <= 259, "a request path holds at most 259 bytes", *request);
  Require(request->starts_with(dataPath + "/"), "a request is below the base path", *request);
  Require(request->ends_with(".compressed") || !compressed, "the mark stands at the end", *request);
  const std::string_view behind = std::string_view(*request).substr(dataPath.size());
  for (const char c : behind) Require(IsSafe(c), "every byte behind the base path is safe", behind);
}

}  // namespace
}  // namespace velmora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora;
  using namespace velmora::fuzz;
  const std::string text(TextOf(data, size));
  if (const auto parts = CrackUrl(text)) {
    CheckParts(*parts, text);
    CheckPutTogether(*parts);
  }
  for (const std::size_t bufferSize :
       {std::size_t{0}, std::size_t{1}, std::size_t{16}, kRequestPathBuffer, std::size_t{100000}}) {
    CheckCanonical(text, Canonicalize::kUnsafe, bufferSize);
    CheckCanonical(text, Canonicalize::kSpacesOnly, bufferSize);
  }
  const std::size_t middle = text.size() / 2;
  CheckRequestPath("/data", text, false);
  CheckRequestPath(text.substr(0, middle), text.substr(middle), true);
  return 0;
}
