// HTTP access in pull form: the caller opens a session, a connection and one request after another,
// asks for status and headers, and then takes the body as it becomes available. Plain GET over
// HTTP/1.1 (RFC 9110, RFC 9112), proxies as the system has them, redirects followed, and the
// connection's user and password given when the server asks for them (RFC 7617, RFC 7616), natively
// without being asked again for each request.
//
// A handle is a number, 0 for none. A handle that was closed, or never was one, is harmless: every
// operation on it fails in the way told below. Operations block the calling thread. A handle may be
// closed by another thread at any time; an operation that is under way on it ends in its own time.
// One request at a time is carried out on a connection, which is kept open between requests and
// replaced by a fresh one when the server has closed it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace velmora::platform {

using HttpHandle = std::uintptr_t;
inline constexpr HttpHandle kNoHttpHandle = 0;

enum class HttpField { kStatusCode, kContentLength };

// Opens a session that names itself by `agent`. No traffic. 0 on failure.
[[nodiscard]] HttpHandle OpenHttpSession(const char* agent);

// Bounds, for everything below `session`, the five waits of a transfer: for the connection, for an
// answer, for sending a request, for sending data, and for the next byte of data.
void SetHttpTimeouts(HttpHandle session, std::uint32_t milliseconds);

// Names a server and the credentials for it. No traffic; 0 if the host is empty or can't be one.
// Port 0 stands for the default of HTTP, 80. User and password both empty mean no credentials.
[[nodiscard]] HttpHandle ConnectHttp(HttpHandle session, const std::string& host,
                                     std::uint16_t port, const std::string& user,
                                     const std::string& password);

// Prepares a GET of `path`, which goes out as it stands but for three things: "." and ".." elements
// are worked out, what a request line can't hold for itself (spaces, "#", bytes above 0x7E) is
// escaped, and a path without a leading slash gets one. 0 on failure, as for a path with control
// characters.
[[nodiscard]] HttpHandle OpenHttpGet(HttpHandle connection, const std::string& path);

// Sends the request and waits for the head of the answer. A failure shows as a status that can't be
// read.
void SendHttpRequest(HttpHandle request);

// Decimal text of the answer's status code or Content-Length, or what a server sent in its place;
// nothing if the answer doesn't hold it, if there was no answer, or if the text and its terminator
// need more than `bufferSize` bytes.
[[nodiscard]] std::optional<std::string> QueryHttpField(HttpHandle request, HttpField field,
                                                        std::size_t bufferSize);

// Waits until body bytes are there, or the body has ended. The number of bytes that the next
// ReadHttp gives at once; 0 at the end of the body and after a broken transfer.
[[nodiscard]] std::uint32_t QueryHttpDataAvailable(HttpHandle request);

// Waits for `size` bytes of the body, or its end. True when all came or the body has ended, also
// when the server closed the connection early; false on a broken transfer (reset, time-out). `read`
// is the number of bytes stored in `buffer`, in both cases.
[[nodiscard]] bool ReadHttp(HttpHandle request, void* buffer, std::uint32_t size,
                            std::uint32_t& read);

// Closes the handle and everything that was opened on it.
void CloseHttpHandle(HttpHandle handle);

}  // namespace velmora::platform
