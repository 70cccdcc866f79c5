// HTTP by WinINet, whose handles these are: it checks each one, so a closed one does no harm.
#include "platform/http.h"

#include <windows.h>
#include <wininet.h>

#include <algorithm>

#include "base/ascii.h"

namespace velmora::platform {

namespace {

HINTERNET ToInternet(HttpHandle handle) { return reinterpret_cast<HINTERNET>(handle); }

HttpHandle ToHttpHandle(HINTERNET handle) { return reinterpret_cast<HttpHandle>(handle); }

bool MustEscape(char c) { return c == ' ' || c == '#' || static_cast<unsigned char>(c) > 0x7E; }

// Resolves the "." and ".." segments of a path that begins with a slash (RFC 3986, 5.2.4), which
// WinINet would send. Leaves the query alone.
std::string RemoveDotSegments(const std::string& path) {
  const std::size_t pathEnd = std::min(path.find('?'), path.size());
  std::string result;
  for (std::size_t start = 0; start < pathEnd;) {
    const std::size_t end = std::min(path.find('/', start + 1), pathEnd);
    const std::string segment = path.substr(start, end - start);
    if (segment == "/..") result.resize(std::min(result.rfind('/'), result.size()));
    if (segment != "/." && segment != "/..") {
      result += segment;
    } else if (end == pathEnd) {
      result += '/';
    }
    start = end;
  }
  return result + path.substr(pathEnd);
}

// The path as it goes into the request line. Escaped are a space, the start of a fragment, and
// bytes that WinINet would convert by the code page.
std::string RequestTarget(const std::string& path) {
  return Escaped(RemoveDotSegments(path.starts_with('/') ? path : "/" + path), MustEscape);
}

// On Windows a connection inherits all time-outs of its session, on Wine only that for connecting.
void InheritTimeouts(HINTERNET session, HINTERNET connection) {
  DWORD timeout = 0;
  DWORD size = sizeof timeout;
  if (InternetQueryOptionA(session, INTERNET_OPTION_CONNECT_TIMEOUT, &timeout, &size)) {
    SetHttpTimeouts(ToHttpHandle(connection), timeout);
  }
}

// The context of a request is free for use, since there are no callbacks. It marks a request that
// got a whole response header: WinINet would return the status of an incomplete one, too.
constexpr DWORD_PTR kAnswered = 1;

bool IsAnswered(HttpHandle request) {
  DWORD_PTR context = 0;
  DWORD size = sizeof context;
  return InternetQueryOptionA(ToInternet(request), INTERNET_OPTION_CONTEXT_VALUE, &context,
                              &size) &&
         context == kAnswered;
}

DWORD QueryLevel(HttpField field) {
  return field == HttpField::kStatusCode ? HTTP_QUERY_STATUS_CODE : HTTP_QUERY_CONTENT_LENGTH;
}

}  // namespace

HttpHandle OpenHttpSession(const char* agent) {
  return ToHttpHandle(InternetOpenA(agent, INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr,
                                    INTERNET_FLAG_EXISTING_CONNECT));
}

void SetHttpTimeouts(HttpHandle session, std::uint32_t milliseconds) {
  for (const DWORD option :
       {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_CONTROL_RECEIVE_TIMEOUT,
        INTERNET_OPTION_CONTROL_SEND_TIMEOUT, INTERNET_OPTION_DATA_SEND_TIMEOUT,
        INTERNET_OPTION_DATA_RECEIVE_TIMEOUT}) {
    InternetSetOptionA(ToInternet(session), option, &milliseconds, sizeof milliseconds);
  }
}

HttpHandle ConnectHttp(HttpHandle session, const std::string& host, std::uint16_t port,
                       const std::string& user, const std::string& password) {
  if (!IsHost(host)) return kNoHttpHandle;
  const bool hasCredentials = !user.empty() || !password.empty();
  const HINTERNET connection = InternetConnectA(
      ToInternet(session), host.c_str(), port, hasCredentials ? user.c_str() : nullptr,
      hasCredentials ? password.c_str() : nullptr, INTERNET_SERVICE_HTTP, 0, 0);
  if (connection != nullptr) InheritTimeouts(ToInternet(session), connection);
  return ToHttpHandle(connection);
}

HttpHandle OpenHttpGet(HttpHandle connection, const std::string& path) {
  if (HasControl(path)) return kNoHttpHandle;
  return ToHttpHandle(HttpOpenRequestA(ToInternet(connection), "GET", RequestTarget(path).c_str(),
                                       nullptr, nullptr, nullptr, 0, 0));
}

void SendHttpRequest(HttpHandle request) {
  if (!HttpSendRequestA(ToInternet(request), nullptr, 0, nullptr, 0)) return;
  DWORD_PTR context = kAnswered;
  InternetSetOptionA(ToInternet(request), INTERNET_OPTION_CONTEXT_VALUE, &context, sizeof context);
}

std::optional<std::string> QueryHttpField(HttpHandle request, HttpField field,
                                          std::size_t bufferSize) {
  if (!IsAnswered(request)) return std::nullopt;
  std::string text(bufferSize, '\0');
  auto length = static_cast<DWORD>(bufferSize);
  const bool succeeded = HttpQueryInfoA(ToInternet(request), QueryLevel(field), text.data(),
                                        &length, nullptr) != FALSE;
  // The call also succeeds for a text that leaves no space for its terminator.
  if (!succeeded || length >= bufferSize) return std::nullopt;
  text.resize(length);
  return text;
}

std::uint32_t QueryHttpDataAvailable(HttpHandle request) {
  DWORD count = 0;
  InternetQueryDataAvailable(ToInternet(request), &count, 0, 0);
  return count;
}

bool ReadHttp(HttpHandle request, void* buffer, std::uint32_t size, std::uint32_t& read) {
  DWORD count = 0;
  const bool succeeded = InternetReadFile(ToInternet(request), buffer, size, &count) != FALSE;
  read = count;
  return succeeded;
}

void CloseHttpHandle(HttpHandle handle) { InternetCloseHandle(ToInternet(handle)); }

}  // namespace velmora::platform
