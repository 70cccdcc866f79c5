#include "platform/url.h"

#include <windows.h>
#include <wininet.h>

#include <array>
#include <cstring>

#include "base/ascii.h"

namespace velmora::platform {

namespace {

using PartBuffer = std::array<char, 1000>;

// Space for the six parts of a URL.
struct PartBuffers {
  PartBuffer scheme{};
  PartBuffer host{};
  PartBuffer user{};
  PartBuffer password{};
  PartBuffer path{};
  PartBuffer extra{};
};

void SetBuffer(PartBuffer& buffer, LPSTR& text, DWORD& size) {
  text = buffer.data();
  size = static_cast<DWORD>(buffer.size());
}

URL_COMPONENTSA Components(PartBuffers& buffers) {
  URL_COMPONENTSA components{};
  components.dwStructSize = sizeof components;
  SetBuffer(buffers.scheme, components.lpszScheme, components.dwSchemeLength);
  SetBuffer(buffers.host, components.lpszHostName, components.dwHostNameLength);
  SetBuffer(buffers.user, components.lpszUserName, components.dwUserNameLength);
  SetBuffer(buffers.password, components.lpszPassword, components.dwPasswordLength);
  SetBuffer(buffers.path, components.lpszUrlPath, components.dwUrlPathLength);
  SetBuffer(buffers.extra, components.lpszExtraInfo, components.dwExtraInfoLength);
  return components;
}

bool IsSpace(char c) { return c == ' '; }

// InternetCanonicalizeUrlA would lose these: it drops tabs, trims spaces and control characters
// from the end, and cuts a text with double-byte characters, whose length it counts in characters.
// Escaped before, they are kept, since it leaves percent signs alone.
bool IsLostInCanonicalizing(char c) { return IsSpace(c) || IsControl(c) || !IsAscii(c); }

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
  if (path.empty()) return path;  // for which the call returns no length
  const bool spacesOnly = mode == Canonicalize::kSpacesOnly;
  const std::string text = Escaped(path, spacesOnly ? IsSpace : IsLostInCanonicalizing);
  const DWORD flags = spacesOnly ? ICU_ENCODE_SPACES_ONLY : 0;
  std::string canonical(bufferSize, '\0');
  auto length = static_cast<DWORD>(bufferSize);
  if (!InternetCanonicalizeUrlA(text.c_str(), canonical.data(), &length, flags)) {
    return std::nullopt;
  }
  canonical.resize(std::strlen(canonical.c_str()));
  if (canonical.size() != length) return std::nullopt;  // cut, see above
  return canonical;
}

}  // namespace velmora::platform
