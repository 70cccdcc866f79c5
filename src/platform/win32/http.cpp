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

// The context of a request is free for use, since there are no callbacks. It says whether the
// request got a whole response header, since WinINet would return the status of an incomplete one,
// too; whether it was redirected; and how it failed.
constexpr DWORD_PTR kAnswered = 1;
constexpr DWORD_PTR kRedirected = 2;
constexpr unsigned kFailureShift = 2;

DWORD_PTR ContextOf(HttpHandle request) {
  DWORD_PTR context = 0;
  DWORD size = sizeof context;
  InternetQueryOptionA(ToInternet(request), INTERNET_OPTION_CONTEXT_VALUE, &context, &size);
  return context;
}

void SetContext(HttpHandle request, DWORD_PTR context) {
  InternetSetOptionA(ToInternet(request), INTERNET_OPTION_CONTEXT_VALUE, &context, sizeof context);
}

HttpFailure FailureOf(DWORD error) {
  switch (error) {
    case ERROR_INTERNET_NAME_NOT_RESOLVED:
      return HttpFailure::kUnknownHost;
    case ERROR_INTERNET_CANNOT_CONNECT:
      return HttpFailure::kRefused;
    case ERROR_INTERNET_TIMEOUT:
    case WSAETIMEDOUT:  // Wine
      return HttpFailure::kTimeout;
    case ERROR_HTTP_REDIRECT_FAILED:
    case ERROR_HTTP_REDIRECT_NEEDS_CONFIRMATION:
    case ERROR_INTERNET_HTTP_TO_HTTPS_ON_REDIR:
      return HttpFailure::kRedirects;
    default:
      return HttpFailure::kBroken;
  }
}

// The first failure is the cause of all others.
void NoteFailure(HttpHandle request, DWORD error) {
  const DWORD_PTR context = ContextOf(request);
  if (context >> kFailureShift != 0) return;
  SetContext(request, context | static_cast<DWORD_PTR>(FailureOf(error)) << kFailureShift);
}

std::string UrlOf(HttpHandle request) {
  std::string url(INTERNET_MAX_URL_LENGTH, '\0');
  auto length = static_cast<DWORD>(url.size());
  if (!InternetQueryOptionA(ToInternet(request), INTERNET_OPTION_URL, url.data(), &length))
    return {};
  url.resize(std::min<std::size_t>(length, url.size()));
  return url.substr(0, url.find('\0'));
}

DWORD QueryLevel(HttpField field) {
  switch (field) {
    case HttpField::kStatusCode:
      return HTTP_QUERY_STATUS_CODE;
    case HttpField::kContentLength:
      return HTTP_QUERY_CONTENT_LENGTH;
    case HttpField::kContentEncoding:
      break;
  }
  return HTTP_QUERY_CONTENT_ENCODING;
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
  const std::string asked = UrlOf(request);
  const bool isAnswered = HttpSendRequestA(ToInternet(request), nullptr, 0, nullptr, 0) != FALSE;
  const DWORD error = isAnswered ? 0 : GetLastError();
  SetContext(request, (isAnswered ? kAnswered : 0) | (UrlOf(request) == asked ? 0 : kRedirected));
  if (!isAnswered) NoteFailure(request, error);
}

std::optional<std::string> QueryHttpField(HttpHandle request, HttpField field,
                                          std::size_t bufferSize) {
  if ((ContextOf(request) & kAnswered) == 0) return std::nullopt;
  std::string text(bufferSize, '\0');
  auto length = static_cast<DWORD>(bufferSize);
  const bool succeeded = HttpQueryInfoA(ToInternet(request), QueryLevel(field), text.data(),
                                        &length, nullptr) != FALSE;
  // The call also succeeds for a text that leaves no space for its terminator.
  if (!succeeded || length >= bufferSize) return std::nullopt;
  text.resize(length);
  return text;
}

HttpFailure QueryHttpFailure(HttpHandle request) {
  DWORD type = 0;
  DWORD size = sizeof type;
  const bool isOpen =
      InternetQueryOptionA(ToInternet(request), INTERNET_OPTION_HANDLE_TYPE, &type, &size) != FALSE;
  return isOpen ? static_cast<HttpFailure>(ContextOf(request) >> kFailureShift)
                : HttpFailure::kBroken;
}

std::optional<std::string> QueryHttpRedirect(HttpHandle request) {
  if ((ContextOf(request) & kRedirected) == 0) return std::nullopt;
  return UrlOf(request);
}

std::uint32_t QueryHttpDataAvailable(HttpHandle request) {
  DWORD count = 0;
  if (!InternetQueryDataAvailable(ToInternet(request), &count, 0, 0)) {
    NoteFailure(request, GetLastError());
  }
  return count;
}

bool ReadHttp(HttpHandle request, void* buffer, std::uint32_t size, std::uint32_t& read) {
  DWORD count = 0;
  const bool succeeded = InternetReadFile(ToInternet(request), buffer, size, &count) != FALSE;
  if (!succeeded) NoteFailure(request, GetLastError());
  read = count;
  return succeeded;
}

void CloseHttpHandle(HttpHandle handle) { InternetCloseHandle(ToInternet(handle)); }

}  // namespace velmora::platform
