#include "platform/url.h"

#include <windows.h>
#include <wininet.h>

#include <array>
#include <cstring>

#include "platform/win32/escape.h"

namespace velmora::platform {

namespace {

using PartBuffer = std::array<char, 1000>;

// The buffers that the six parts of a URL are copied to.
struct PartBuffers {
  PartBuffer scheme{};
  PartBuffer host{};
  PartBuffer user{};
  PartBuffer password{};
  PartBuffer path{};
  PartBuffer extra{};
};

void Offer(PartBuffer& buffer, LPSTR& text, DWORD& size) {
  text = buffer.data();
  size = static_cast<DWORD>(buffer.size());
}

URL_COMPONENTSA Components(PartBuffers& buffers) {
  URL_COMPONENTSA components{};
  components.dwStructSize = sizeof components;
  Offer(buffers.scheme, components.lpszScheme, components.dwSchemeLength);
  Offer(buffers.host, components.lpszHostName, components.dwHostNameLength);
  Offer(buffers.user, components.lpszUserName, components.dwUserNameLength);
  Offer(buffers.password, components.lpszPassword, components.dwPasswordLength);
  Offer(buffers.path, components.lpszUrlPath, components.dwUrlPathLength);
  Offer(buffers.extra, components.lpszExtraInfo, components.dwExtraInfoLength);
  return components;
}

// Bytes that InternetCanonicalizeUrlA loses: it drops tabs, trims blanks and control characters off
// the end, and cuts the end off a text with double-byte characters, whose length it counts in
// characters. Escaped by then they pass, since it leaves percent signs alone.
bool NeedsEscapeBefore(char c, Canonicalize mode) {
  const auto byte = static_cast<unsigned char>(c);
  return c == ' ' || (mode == Canonicalize::kUnsafe && (byte < ' ' || byte >= 0x7F));
}

std::string EscapedBefore(const std::string& path, Canonicalize mode) {
  std::string text;
  for (const char c : path) {
    if (NeedsEscapeBefore(c, mode)) {
      AppendEscaped(text, c);
    } else {
      text += c;
    }
  }
  return text;
}

}  // namespace

std::optional<UrlParts> CrackUrl(const std::string& url) {
  PartBuffers buffers;
  URL_COMPONENTSA components = Components(buffers);
  if (!InternetCrackUrlA(url.c_str(), 0, 0, &components)) return std::nullopt;
  return UrlParts{buffers.scheme.data(), buffers.host.data(),     components.nPort,
                  buffers.user.data(),   buffers.password.data(), buffers.path.data(),
                  buffers.extra.data()};
}

std::optional<std::string> CanonicalizeUrlPath(const std::string& path, Canonicalize mode,
                                               std::size_t bufferSize) {
  if (path.empty()) return path;  // the call gives no length for it
  const DWORD flags = mode == Canonicalize::kSpacesOnly ? ICU_ENCODE_SPACES_ONLY : 0;
  std::string canonical(bufferSize, '\0');
  auto length = static_cast<DWORD>(bufferSize);
  const std::string text = EscapedBefore(path, mode);
  if (!InternetCanonicalizeUrlA(text.c_str(), canonical.data(), &length, flags)) {
    return std::nullopt;
  }
  canonical.resize(std::strlen(canonical.c_str()));
  if (canonical.size() != length) return std::nullopt;  // cut, see above
  return canonical;
}

}  // namespace velmora::platform
