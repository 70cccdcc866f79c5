// Splits and canonicalises URLs (RFC 1738, as Windows' own functions read it). Pure; safe from any
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velmora::platform {

struct UrlParts {
  std::string scheme;
  std::string host;
  std::uint16_t port = 0;  // the scheme's default if the URL names none
  std::string user;
  std::string password;
  std::string path;   // from the first slash after the host, without query and fragment
  std::string extra;  // query and fragment, with their first character
};

// Splits an absolute URL. Nothing if `url` isn't one, or if a part has more than 999 bytes.
[[nodiscard]] std::optional<UrlParts> CrackUrl(const std::string& url);

enum class Canonicalize { kUnsafe, kSpacesOnly };

// The path as a request line can contain it: kUnsafe turns spaces and other unsafe bytes into %XX,
// kSpacesOnly only spaces. Nothing if the result and its terminator need more than `bufferSize`
// bytes.
[[nodiscard]] std::optional<std::string> CanonicalizeUrlPath(const std::string& path,
                                                             Canonicalize mode,
                                                             std::size_t bufferSize);

}  // namespace velmora::platform
