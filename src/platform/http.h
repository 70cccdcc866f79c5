// HTTP/1.1 GET requests (RFC 9110, RFC 9112) in pull form: the caller opens a session, a connection
// and one request after another, asks for status and headers, and reads the body as it becomes
// available. The system's proxy settings apply. Redirects are followed. User and password are sent
// when the server asks for them (RFC 7617, RFC 7616); natively it is asked once for all requests.
//
// A handle is a number, 0 if invalid. Operations on a closed or invalid handle do no harm and fail
// as described below. Operations block the calling thread. Another thread may close a handle at any
// time; an operation that is using it still completes. A connection carries one request at a time.
// It stays open between requests; if the server has closed it, a new one replaces it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace velmora::platform {

using HttpHandle = std::uintptr_t;
inline constexpr HttpHandle kNoHttpHandle = 0;

enum class HttpField { kStatusCode, kContentLength, kContentEncoding };

// Why there is no response, or why its body broke off.
enum class HttpFailure {
  kNone,
  kUnknownHost,
  kRefused,    // nothing listens there, or there is no way to it
  kTimeout,    // one of the waits of SetHttpTimeouts
  kRedirects,  // a redirect that leads nowhere, or more of them than are followed
  kBroken,     // anything else, such as a reset
};

// Opens a session whose requests have the User-Agent `agent`. No traffic. 0 on failure.
[[nodiscard]] HttpHandle OpenHttpSession(const char* agent);

// Limits each of the five waits of a transfer, for everything that is opened on `session`: for the
// connection, for sending the request, for sending data, for the response, and for the next byte of
// data.
void SetHttpTimeouts(HttpHandle session, std::uint32_t milliseconds);

// Names a server and the credentials for it. No traffic. 0 if `host` is no valid host. Port 0 means
// HTTP's default, 80. There are no credentials if user and password are both empty.
[[nodiscard]] HttpHandle ConnectHttp(HttpHandle session, const std::string& host,
                                     std::uint16_t port, const std::string& user,
                                     const std::string& password);

// Prepares a GET of `path`, which is sent unchanged but for three things: "." and ".." elements are
// resolved, what a request line can't contain (spaces, "#", bytes above 0x7E) is escaped, and a
// missing leading slash is added. 0 on failure, for example if the path has control characters.
[[nodiscard]] HttpHandle OpenHttpGet(HttpHandle connection, const std::string& path);

// Sends the request and waits for the head of the response. After a failure there is no status.
void SendHttpRequest(HttpHandle request);

// The response's status code, Content-Length or Content-Encoding as the server sent it; the first
// two are normally decimal numbers. Nothing if the response lacks it, if there was no response, or
// if the text and its terminator need more than `bufferSize` bytes.
[[nodiscard]] std::optional<std::string> QueryHttpField(HttpHandle request, HttpField field,
                                                        std::size_t bufferSize);

// The first failure of the request so far, of whatever operation on it.
[[nodiscard]] HttpFailure QueryHttpFailure(HttpHandle request);

// The URL that was requested last, without credentials, if the server has redirected the request;
// otherwise nothing.
[[nodiscard]] std::optional<std::string> QueryHttpRedirect(HttpHandle request);

// Waits for bytes of the body or its end. Returns the number of bytes that the next ReadHttp
// returns without waiting; 0 at the end of the body and after a broken transfer.
[[nodiscard]] std::uint32_t QueryHttpDataAvailable(HttpHandle request);

// Waits for `size` bytes of the body or its end. True if all came or the body has ended, even if
// the server closed the connection early; false on a broken transfer (reset, time-out). In either
// case `read` is the number of bytes stored in `buffer`.
[[nodiscard]] bool ReadHttp(HttpHandle request, void* buffer, std::uint32_t size,
                            std::uint32_t& read);

// Closes the handle and everything that was opened on it.
void CloseHttpHandle(HttpHandle handle);

}  // namespace velmora::platform
