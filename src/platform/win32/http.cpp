// HTTP by WinINet. A handle of this header is WinINet's own: it checks each one itself, so that a
// closed one does no harm.
#include "platform/http.h"

#include <windows.h>
#include <wininet.h>

#include <algorithm>

#include "base/ascii.h"
#include "platform/win32/escape.h"

namespace velmora::platform {

namespace {

HINTERNET Internet(HttpHandle handle) { return reinterpret_cast<HINTERNET>(handle); }

HttpHandle Number(HINTERNET handle) { return reinterpret_cast<HttpHandle>(handle); }

bool HasControls(const std::string& text) {
  return std::any_of(text.begin(), text.end(), IsControl);
}

bool IsEscaped(char c) { return c == ' ' || c == '#' || static_cast<unsigned char>(c) > 0x7E; }

// A path that begins with a slash, its "." and ".." elements worked out (RFC 3986, 5.2.4). WinINet
// sends them. A query is no part of the path.
std::string WithoutDotElements(const std::string& path) {
  const std::size_t pathEnd = std::min(path.find('?'), path.size());
  std::string result;
  for (std::size_t start = 0; start < pathEnd;) {
    const std::size_t end = std::min(path.find('/', start + 1), pathEnd);
    const std::string element = path.substr(start, end - start);
    if (element == "/..") result.resize(std::min(result.rfind('/'), result.size()));
    if (element != "/." && element != "/..") {
      result += element;
    } else if (end == pathEnd) {
      result += '/';
    }
    start = end;
  }
  return result + path.substr(pathEnd);
}

// The path as the request line carries it. What is escaped here can't stand for itself there: a
// blank, the start of a fragment, and bytes that would be taken through the code page.
std::string RequestTarget(const std::string& path) {
  std::string target;
  for (const char c : WithoutDotElements(path.starts_with('/') ? path : "/" + path)) {
    if (IsEscaped(c)) {
      AppendEscaped(target, c);
    } else {
      target += c;
    }
  }
  return target;
}

// Windows hands all time-outs of a session on to what is opened below it, Wine only the one of the
// connects.
void PassTimeoutsOn(HINTERNET session, HINTERNET connection) {
  DWORD timeout = 0;
  DWORD size = sizeof timeout;
  if (InternetQueryOptionA(session, INTERNET_OPTION_CONNECT_TIMEOUT, &timeout, &size)) {
    SetHttpTimeouts(Number(connection), timeout);
  }
}

// A request's context is free for use, as nothing here asks for callbacks: it tells whether the
// request got an answer. Status and headers of a broken head could be read, too.
constexpr DWORD_PTR kHasAnswer = 1;

bool HasAnswer(HttpHandle request) {
  DWORD_PTR context = 0;
  DWORD size = sizeof context;
  return InternetQueryOptionA(Internet(request), INTERNET_OPTION_CONTEXT_VALUE, &context, &size) &&
         context == kHasAnswer;
}

DWORD QueryLevel(HttpField field) {
  return field == HttpField::kStatusCode ? HTTP_QUERY_STATUS_CODE : HTTP_QUERY_CONTENT_LENGTH;
}

}  // namespace

HttpHandle OpenHttpSession(const char* agent) {
  return Number(InternetOpenA(agent, INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr,
                              INTERNET_FLAG_EXISTING_CONNECT));
}

void SetHttpTimeouts(HttpHandle session, std::uint32_t milliseconds) {
  for (const DWORD option :
       {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_CONTROL_RECEIVE_TIMEOUT,
        INTERNET_OPTION_CONTROL_SEND_TIMEOUT, INTERNET_OPTION_DATA_SEND_TIMEOUT,
        INTERNET_OPTION_DATA_RECEIVE_TIMEOUT}) {
    InternetSetOptionA(Internet(session), option, &milliseconds, sizeof milliseconds);
  }
}

HttpHandle ConnectHttp(HttpHandle session, const std::string& host, std::uint16_t port,
                       const std::string& user, const std::string& password) {
  if (!IsHost(host)) return kNoHttpHandle;
  const bool isNamed = !user.empty() || !password.empty();
  const HINTERNET connection =
      InternetConnectA(Internet(session), host.c_str(), port, isNamed ? user.c_str() : nullptr,
                       isNamed ? password.c_str() : nullptr, INTERNET_SERVICE_HTTP, 0, 0);
  if (connection != nullptr) PassTimeoutsOn(Internet(session), connection);
  return Number(connection);
}

HttpHandle OpenHttpGet(HttpHandle connection, const std::string& path) {
  if (HasControls(path)) return kNoHttpHandle;
  return Number(HttpOpenRequestA(Internet(connection), "GET", RequestTarget(path).c_str(), nullptr,
                                 nullptr, nullptr, 0, 0));
}

void SendHttpRequest(HttpHandle request) {
  if (!HttpSendRequestA(Internet(request), nullptr, 0, nullptr, 0)) return;
  DWORD_PTR context = kHasAnswer;
  InternetSetOptionA(Internet(request), INTERNET_OPTION_CONTEXT_VALUE, &context, sizeof context);
}

std::optional<std::string> QueryHttpField(HttpHandle request, HttpField field,
                                          std::size_t bufferSize) {
  if (!HasAnswer(request)) return std::nullopt;
  std::string text(bufferSize, '\0');
  auto length = static_cast<DWORD>(bufferSize);
  const bool given =
      HttpQueryInfoA(Internet(request), QueryLevel(field), text.data(), &length, nullptr) != FALSE;
  // Success is told too for a text that has no room left for its terminator.
  if (!given || length >= bufferSize) return std::nullopt;
  text.resize(length);
  return text;
}

std::uint32_t QueryHttpDataAvailable(HttpHandle request) {
  DWORD count = 0;
  InternetQueryDataAvailable(Internet(request), &count, 0, 0);
  return count;
}

bool ReadHttp(HttpHandle request, void* buffer, std::uint32_t size, std::uint32_t& read) {
  DWORD count = 0;
  const bool succeeded = InternetReadFile(Internet(request), buffer, size, &count) != FALSE;
  read = count;
  return succeeded;
}

void CloseHttpHandle(HttpHandle handle) { InternetCloseHandle(Internet(handle)); }

}  // namespace velmora::platform
