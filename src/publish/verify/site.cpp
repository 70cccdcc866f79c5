#include "publish/verify/site.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <system_error>
#include <vector>

#include "base/text.h"
#include "engine/reference_list.h"
#include "engine/request_path.h"
#include "platform/http.h"
#include "publish/common/list_path.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// What patchers say and how long they wait.
constexpr char kAgent[] = "VelmoraUpdate";
constexpr std::uint32_t kTimeout = 10000;
constexpr std::size_t kHeaderBuffer = 32;

constexpr std::int32_t kDefaultPort = 80;
constexpr std::size_t kPiece = std::size_t{1} << 17;

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

class ServerSource {
 public:
  explicit ServerSource(const Server& server)
      : session_(OpenSession()),
        connection_(platform::ConnectHttp(session_, server.host,
                                          static_cast<std::uint16_t>(server.port & 0xFFFF),
                                          server.user, server.password)) {}

  DeliveryEnd Deliver(const std::string& path, Receiver& receiver);

 private:
  DeliveryEnd DeliverBody(platform::HttpHandle request, Receiver& receiver);

  HttpHandleOwner session_;
  HttpHandleOwner connection_;
  std::vector<std::uint8_t> piece_ = std::vector<std::uint8_t>(kPiece);
};

DeliveryEnd ServerSource::Deliver(const std::string& path, Receiver& receiver) {
  using platform::HttpField;
  const HttpHandleOwner request(platform::OpenHttpGet(connection_, path));
  platform::SendHttpRequest(request);
  AnswerHead head;
  const auto status = platform::QueryHttpField(request, HttpField::kStatusCode, kHeaderBuffer);
  head.status = status ? ToNumber(*status) : 0;
  head.length = platform::QueryHttpField(request, HttpField::kContentLength, kHeaderBuffer);
  if (head.status == 0) head.trouble = "no answer";
  if (!receiver.TakeHead(head)) return DeliveryEnd::kUnwanted;
  return DeliverBody(request, receiver);
}

DeliveryEnd ServerSource::DeliverBody(platform::HttpHandle request, Receiver& receiver) {
  while (const std::uint32_t available = platform::QueryHttpDataAvailable(request)) {
    const auto wanted = std::min(available, static_cast<std::uint32_t>(piece_.size()));
    std::uint32_t count = 0;
    const bool isSound = platform::ReadHttp(request, piece_.data(), wanted, count);
    if (!receiver.TakePiece(piece_.data(), count)) return DeliveryEnd::kUnwanted;
    if (!isSound) return DeliveryEnd::kBroken;
  }
  // An end and a failure are both no more data; only a read tells them apart.
  std::uint32_t count = 0;
  return platform::ReadHttp(request, piece_.data(), 1, count) ? DeliveryEnd::kEnded
                                                              : DeliveryEnd::kBroken;
}

AnswerHead HeadOf(const fs::path& path, const std::ifstream& stream, int error) {
  std::error_code failure;
  const auto kind = fs::status(path, failure).type();
  if (stream.is_open()) {
    return {.status = 200, .length = std::to_string(fs::file_size(path, failure)), .trouble = ""};
  }
  if (kind == fs::file_type::not_found) return {.status = 404, .length = {}, .trouble = ""};
  std::string reason = failure.message();
  if (!failure && kind != fs::file_type::regular) reason = "it is no file";
  if (!failure && kind == fs::file_type::regular) reason = std::generic_category().message(error);
  return {.status = 403, .length = {}, .trouble = "can't be read: " + reason};
}

DeliveryEnd DeliverFile(const fs::path& path, std::vector<std::uint8_t>& piece,
                        Receiver& receiver) {
  errno = 0;
  std::error_code failure;
  std::ifstream stream;
  // Opening what is no file may wait forever.
  if (fs::is_regular_file(path, failure)) stream.open(path, std::ios::binary);
  const AnswerHead head = HeadOf(path, stream, errno);
  if (!receiver.TakeHead(head) || !stream.is_open()) return DeliveryEnd::kUnwanted;
  while (stream) {
    stream.read(reinterpret_cast<char*>(piece.data()), static_cast<std::streamsize>(piece.size()));
    const auto count = static_cast<std::size_t>(stream.gcount());
    if (!receiver.TakePiece(piece.data(), count)) return DeliveryEnd::kUnwanted;
  }
  return stream.eof() ? DeliveryEnd::kEnded : DeliveryEnd::kBroken;
}

}  // namespace

std::string ServerName(const Server& server) {
  const bool isDefault = server.port == 0 || server.port == kDefaultPort;
  return "http://" + server.host + (isDefault ? "" : ":" + std::to_string(server.port)) +
         server.dataPath;
}

Site ServerSite(const Server& server, const std::string& listName) {
  return {.name = ServerName(server),
          .listName = listName,
          .listPath = server.dataPath + "/" + listName,
          .pathOf = [path = server.dataPath](
                        const FileRecord& record) { return RequestPath(path, record); },
          .open = [server]() -> Source {
            return [source = std::make_shared<ServerSource>(server)](const std::string& path,
                                                                     Receiver& receiver) {
              return source->Deliver(path, receiver);
            };
          }};
}

Site FolderSite(const fs::path& folder, const std::string& listName) {
  const std::string root = folder.native() + "/";
  return {.name = folder.native(),
          .listName = listName,
          .listPath = root + listName,
          .pathOf = [root](const FileRecord& record) -> std::optional<std::string> {
            if (!RequestPath("", record)) return std::nullopt;
            const auto mark = record.compressed ? kCompressedMark : std::string_view();
            return root + ServedPath(record.path) + std::string(mark);
          },
          .open = []() -> Source {
            return [piece = std::make_shared<std::vector<std::uint8_t>>(kPiece)](
                       const std::string& path, Receiver& receiver) {
              return DeliverFile(path, *piece, receiver);
            };
          }};
}

}  // namespace velmora::publish
