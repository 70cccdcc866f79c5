#include "publish/verify/origin.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>
#include <system_error>
#include <vector>

#include "base/text.h"
#include "engine/reference_list.h"
#include "engine/request_path.h"
#include "platform/http.h"
#include "publish/common/disk_text.h"
#include "publish/common/list_path.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// The user agent and the time-out of patchers.
constexpr char kAgent[] = "VelmoraUpdate";
constexpr std::uint32_t kTimeout = 10000;
constexpr std::size_t kNumberBuffer = 32;
constexpr std::size_t kTextBuffer = 128;

constexpr std::int32_t kDefaultPort = 80;
constexpr std::size_t kBufferSize = std::size_t{1} << 17;

class HttpHandleOwner {
 public:
  explicit HttpHandleOwner(platform::HttpHandle handle) : handle_(handle) {}
  ~HttpHandleOwner() {
    if (handle_ != platform::kNoHttpHandle) platform::CloseHttpHandle(handle_);
  }
  HttpHandleOwner(const HttpHandleOwner&) = delete;
  HttpHandleOwner& operator=(const HttpHandleOwner&) = delete;
  operator platform::HttpHandle() const { return handle_; }

 private:
  platform::HttpHandle handle_;
};

platform::HttpHandle OpenSession() {
  const platform::HttpHandle session = platform::OpenHttpSession(kAgent);
  platform::SetHttpTimeouts(session, kTimeout);
  return session;
}

// Why there is no response, and what may help.
std::string TroubleOf(platform::HttpFailure failure) {
  using platform::HttpFailure;
  switch (failure) {
    case HttpFailure::kUnknownHost:
      return "no answer: unknown host; check its name, and what DNS says";
    case HttpFailure::kRefused:
      return "no answer: connection refused; check the port, and that the server is running";
    case HttpFailure::kTimeout:
      return "no answer: time-out after ten seconds, as for players; check address and firewall, "
             "and the server's load";
    case HttpFailure::kRedirects:
      return "no answer: redirected in circles, or to what isn't HTTP";
    default:
      return "no answer: the connection broke off";
  }
}

class ServerFetcher {
 public:
  explicit ServerFetcher(const Server& server)
      : user_(server.user),
        session_(OpenSession()),
        connection_(platform::ConnectHttp(session_, server.host,
                                          static_cast<std::uint16_t>(server.port & 0xFFFF),
                                          server.user, server.password)) {}

  DeliveryEnd Deliver(const std::string& path, Sink& sink);

 private:
  [[nodiscard]] ResponseHead HeadOf(platform::HttpHandle request) const;
  DeliveryEnd DeliverBody(platform::HttpHandle request, Sink& sink);

  std::string user_;
  HttpHandleOwner session_;
  HttpHandleOwner connection_;
  std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(kBufferSize);
};

DeliveryEnd ServerFetcher::Deliver(const std::string& path, Sink& sink) {
  const HttpHandleOwner request(platform::OpenHttpGet(connection_, path));
  platform::SendHttpRequest(request);
  if (!sink.TakeHead(HeadOf(request))) return DeliveryEnd::kUnwanted;
  return DeliverBody(request, sink);
}

ResponseHead ServerFetcher::HeadOf(platform::HttpHandle request) const {
  using platform::HttpField;
  using platform::QueryHttpField;
  ResponseHead head;
  head.status =
      ToNumber(QueryHttpField(request, HttpField::kStatusCode, kNumberBuffer).value_or(""));
  head.length = QueryHttpField(request, HttpField::kContentLength, kNumberBuffer);
  head.encoding = QueryHttpField(request, HttpField::kContentEncoding, kTextBuffer).value_or("");
  head.redirectedTo = platform::QueryHttpRedirect(request).value_or("");
  if (head.status == 0) {
    head.trouble = TroubleOf(platform::QueryHttpFailure(request));
  } else if (head.status == 401) {
    head.trouble = user_.empty()
                       ? "status 401: wants a user and a password; give them by --user and "
                         "--password-file, and players by FTPUserName and FTPPassword"
                       : "status 401: refuses user " + user_ + " with the password given";
  }
  return head;
}

DeliveryEnd EndOf(platform::HttpHandle request) {
  return platform::QueryHttpFailure(request) == platform::HttpFailure::kTimeout
             ? DeliveryEnd::kStalled
             : DeliveryEnd::kBroken;
}

DeliveryEnd ServerFetcher::DeliverBody(platform::HttpHandle request, Sink& sink) {
  while (const std::uint32_t available = platform::QueryHttpDataAvailable(request)) {
    const auto wanted = std::min(available, static_cast<std::uint32_t>(buffer_.size()));
    std::uint32_t count = 0;
    const bool isSound = platform::ReadHttp(request, buffer_.data(), wanted, count);
    if (!sink.TakeBytes(buffer_.data(), count)) return DeliveryEnd::kUnwanted;
    if (!isSound) return EndOf(request);
  }
  // No more data means the end or a failure. Only a read tells them apart.
  std::uint32_t count = 0;
  const bool isEnd = platform::ReadHttp(request, buffer_.data(), 1, count);
  return isEnd ? DeliveryEnd::kEnded : EndOf(request);
}

ResponseHead HeadOf(const fs::path& path, const std::ifstream& stream) {
  ResponseHead head;
  std::error_code failure;
  const auto kind = fs::status(path, failure).type();
  if (stream.is_open()) {
    head.status = 200;
    head.length = std::to_string(fs::file_size(path, failure));
  } else if (kind == fs::file_type::not_found) {
    head.status = 404;
  } else {
    std::string reason = platform::ErrorText(failure);
    if (!failure && kind != fs::file_type::regular) reason = "it is no file";
    if (!failure && kind == fs::file_type::regular)
      reason = platform::ErrorText(platform::StreamError());
    head.status = 403;
    head.trouble = "can't be read: " + reason;
  }
  return head;
}

DeliveryEnd DeliverFile(const fs::path& path, std::vector<std::uint8_t>& buffer, Sink& sink) {
  platform::ClearStreamError();
  std::error_code failure;
  std::ifstream stream;
  // Opening anything else, such as a pipe, may wait forever.
  if (fs::is_regular_file(path, failure)) stream.open(path, std::ios::binary);
  const ResponseHead head = HeadOf(path, stream);
  if (!sink.TakeHead(head) || !stream.is_open()) return DeliveryEnd::kUnwanted;
  while (stream) {
    stream.read(reinterpret_cast<char*>(buffer.data()),
                static_cast<std::streamsize>(buffer.size()));
    const auto count = static_cast<std::size_t>(stream.gcount());
    if (!sink.TakeBytes(buffer.data(), count)) return DeliveryEnd::kUnwanted;
  }
  return stream.eof() ? DeliveryEnd::kEnded : DeliveryEnd::kBroken;
}

}  // namespace

std::string ServerName(const Server& server) {
  const bool isDefault = server.port == 0 || server.port == kDefaultPort;
  return "http://" + server.host + (isDefault ? "" : ":" + std::to_string(server.port)) +
         server.dataPath;
}

Origin ServerOrigin(const Server& server, const std::string& listName) {
  return {.name = ServerName(server),
          .listName = listName,
          .listPath = server.dataPath + "/" + listName,
          .pathOf = [path = server.dataPath](
                        const FileRecord& record) { return RequestPath(path, record); },
          .open = [server]() -> Fetch {
            return
                [fetcher = std::make_shared<ServerFetcher>(server)](
                    const std::string& path, Sink& sink) { return fetcher->Deliver(path, sink); };
          }};
}

Origin FolderOrigin(const fs::path& folder, const std::string& listName) {
  const std::string root = TextOf(folder) + "/";
  return {.name = ShownPath(folder),
          .listName = listName,
          .listPath = root + listName,
          .pathOf = [root](const FileRecord& record) -> std::optional<std::string> {
            if (!RequestPath("", record)) return std::nullopt;
            const auto mark = record.compressed ? kCompressedMark : std::string_view();
            return root +
                   TextOf(platform::PathOfListText(ServedPath(record.path) + std::string(mark)));
          },
          .open = []() -> Fetch {
            return [buffer = std::make_shared<std::vector<std::uint8_t>>(kBufferSize)](
                       const std::string& path, Sink& sink) {
              return DeliverFile(PathOf(path), *buffer, sink);
            };
          }};
}

}  // namespace velmora::publish
