// Any text as a URL, and as the path of a request.
#include "engine/request_path.h"
#include "harness.h"
#include "platform/url.h"

namespace velmora::fuzz {
namespace {

using platform::Canonicalize;
using platform::CanonicalizeUrlPath;
using platform::UrlParts;

std::vector<std::string> PartsOf(const UrlParts& url) {
  return {url.scheme, url.user, url.password, url.host, url.path, url.extra};
}

void CheckParts(const UrlParts& parts, std::string_view url) {
  url = url.substr(0, url.find('\0'));
  std::size_t at = 0;
  for (const std::string& part : PartsOf(parts)) {
    Require(part.size() <= 999, "a part holds at most 999 bytes", part);
    at = url.find(part, at);
    Require(at != std::string_view::npos, "the parts stand in the URL in their order", part);
    at += part.size();
  }
  if (parts.host.empty()) return;
  const std::string whole = parts.scheme + "://" + parts.user + ':' + parts.password + '@' +
                            parts.host + ':' + std::to_string(parts.port) + parts.path +
                            parts.extra;
  const auto again = platform::CrackUrl(whole);
  Require(again && PartsOf(*again) == PartsOf(parts) && again->port == parts.port,
          "the parts put together split into the same parts", whole);
}

bool IsSafe(char c) {
  return c > 0x20 && c < 0x7F && std::string_view("<>\"{}|\\^[]`&").find(c) == std::string::npos;
}

void CheckCanonical(const std::string& path, Canonicalize mode, std::size_t bufferSize) {
  std::string expected;
  for (const char c : path) {
    const bool stays = mode == Canonicalize::kUnsafe ? IsSafe(c) : c != ' ';
    expected += stays ? std::string(1, c) : FormatText("%%%02X", static_cast<unsigned char>(c));
  }
  const auto canonical = CanonicalizeUrlPath(path, mode, bufferSize);
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
  Require(request->size() <= 259 && request->starts_with(dataPath + "/"), "a request", *request);
  Require(std::all_of(request->begin() + static_cast<std::ptrdiff_t>(dataPath.size()),
                      request->end(), IsSafe),
          "every byte after the base path is safe", *request);
}

}  // namespace

void CheckInput(std::string_view input) {
  const std::string text(input);
  if (const auto parts = platform::CrackUrl(text)) CheckParts(*parts, text);
  for (const std::size_t bufferSize :
       {std::size_t{0}, std::size_t{16}, kRequestPathBuffer, std::size_t{100000}}) {
    CheckCanonical(text, Canonicalize::kUnsafe, bufferSize);
    CheckCanonical(text, Canonicalize::kSpacesOnly, bufferSize);
  }
  const std::size_t middle = text.size() / 2;
  CheckRequestPath("/data", text, false);
  CheckRequestPath(text.substr(0, middle), text.substr(middle), true);
}

}  // namespace velmora::fuzz
