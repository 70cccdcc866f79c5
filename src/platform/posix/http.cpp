// HTTP with libcurl's multi interface. Each Connection has a multi handle, whose pool keeps the
// server's connection between requests; libcurl opens a new one if the server has closed it. A
// transfer makes progress only while a caller waits. What has arrived and wasn't read yet is in the
// request's buffer; a full buffer pauses the transfer.
#include "platform/http.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "base/ascii.h"
#include "base/text.h"
#include "platform/clock.h"
#include "platform/posix/transfer_count.h"

namespace velmora::platform {
namespace {

constexpr std::size_t kMaxBuffered = std::size_t{1} << 20;
constexpr long kReceiveBuffer = 256L * 1024;
constexpr long kMaxRedirects = 20;
constexpr std::uint32_t kDefaultTimeout = 60000;

struct Session {
  std::string agent;
  std::uint32_t timeout = kDefaultTimeout;
};

struct Connection {
  std::shared_ptr<Session> session;
  std::string authority;
  std::string user;
  std::string password;
  CURLM* multi = nullptr;
  // The handle for the next request. Once the server has asked for credentials, it knows the method
  // that the server wants, so that later requests have them at once.
  CURL* idle = nullptr;

  [[nodiscard]] bool HasCredentials() const { return !user.empty() || !password.empty(); }
  void Forget() { curl_easy_cleanup(std::exchange(idle, nullptr)); }

  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    Forget();
    curl_multi_cleanup(multi);
  }
};

class Request {
 public:
  Request(std::shared_ptr<Connection> connection, std::string url)
      : connection_(std::move(connection)), url_(std::move(url)) {}
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request() { EndTransfer(); }

  void Send();
  std::size_t WaitForData();
  bool Read(char* buffer, std::size_t size, std::uint32_t& read);
  [[nodiscard]] const std::shared_ptr<Connection>& connection() const { return connection_; }
  [[nodiscard]] const std::optional<std::string>& Field(HttpField field) const;
  [[nodiscard]] HttpFailure Failure() const;
  [[nodiscard]] const std::optional<std::string>& Redirect() const { return redirect_; }

 private:
  static std::size_t OnHeader(char* data, std::size_t, std::size_t size, void* request);
  static std::size_t OnBody(char* data, std::size_t, std::size_t size, void* request);
  static int OnConnected(void* request, char*, char*, int, int);

  void ForgetHead();
  void Transfer(bool trustsLength);
  void Configure();
  void TakeHeader(std::string_view line);
  void DriveUntil(const std::function<bool()>& reached);
  void TakeResult();
  void NoteRedirect();
  void Wait();
  void EndTransfer();
  void NoteActivity() { lastActivity_ = TickCount(); }
  [[nodiscard]] std::size_t Buffered() const { return body_.size() - read_; }

  std::shared_ptr<Connection> connection_;
  std::string url_;
  CURL* easy_ = nullptr;
  bool done_ = true;
  CURLcode result_ = CURLE_OK;
  bool connected_ = false;
  bool paused_ = false;
  bool headEnded_ = false;     // by its empty line; a head that breaks off doesn't count
  bool headComplete_ = false;  // and no other response follows
  std::uint32_t lastActivity_ = 0;
  std::optional<std::string> status_;
  std::optional<std::string> contentLength_;
  std::optional<std::string> contentEncoding_;
  bool isRedirected_ = false;
  std::optional<std::string> redirect_;
  std::string body_;      // what was received,
  std::size_t read_ = 0;  // and how much of it was read
};

void Request::Send() {
  const bool isKnown = connection_->idle != nullptr && connection_->HasCredentials();
  Transfer(true);
  // The server may want another method, or a new nonce.
  if (isKnown && status_ == "401") {
    EndTransfer();
    connection_->Forget();
    Transfer(true);
  }
  // For libcurl a Content-Length that is no number is an error; callers want to see it.
  if (!headEnded_ && result_ == CURLE_WEIRD_SERVER_REPLY) Transfer(false);
  NoteRedirect();
  // The head of a redirect that was followed in vain isn't the response.
  if (headEnded_ && !(redirect_ && !headComplete_ && result_ != CURLE_OK)) return;
  ForgetHead();
}

void Request::ForgetHead() {
  status_.reset();
  contentLength_.reset();
  contentEncoding_.reset();
}

const std::optional<std::string>& Request::Field(HttpField field) const {
  switch (field) {
    case HttpField::kStatusCode:
      return status_;
    case HttpField::kContentLength:
      return contentLength_;
    case HttpField::kContentEncoding:
      break;
  }
  return contentEncoding_;
}

HttpFailure Request::Failure() const {
  switch (result_) {
    case CURLE_OK:
    case CURLE_PARTIAL_FILE:  // an early end, which is no failure
      return HttpFailure::kNone;
    case CURLE_COULDNT_RESOLVE_HOST:
      return HttpFailure::kUnknownHost;
    case CURLE_COULDNT_CONNECT:
      return HttpFailure::kRefused;
    case CURLE_OPERATION_TIMEDOUT:
      return HttpFailure::kTimeout;
    case CURLE_TOO_MANY_REDIRECTS:
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
      return HttpFailure::kRedirects;
    default:
      return HttpFailure::kBroken;
  }
}

// libcurl adds those of the connection to what it was redirected to.
std::string WithoutCredentials(const char* url) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parts(curl_url(), &curl_url_cleanup);
  char* text = nullptr;
  const bool isDone = curl_url_set(parts.get(), CURLUPART_URL, url, 0) == CURLUE_OK &&
                      curl_url_set(parts.get(), CURLUPART_USER, nullptr, 0) == CURLUE_OK &&
                      curl_url_set(parts.get(), CURLUPART_PASSWORD, nullptr, 0) == CURLUE_OK &&
                      curl_url_get(parts.get(), CURLUPART_URL, &text, 0) == CURLUE_OK;
  const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
  return isDone ? text : "";
}

void Request::NoteRedirect() {
  char* url = nullptr;
  if (easy_ == nullptr || !isRedirected_) return;
  if (curl_easy_getinfo(easy_, CURLINFO_EFFECTIVE_URL, &url) != CURLE_OK) return;
  redirect_ = WithoutCredentials(url);
}

// From the request to the end of the response's head. If the length isn't trusted, the body ends
// where the connection closes; the caller gets the Content-Length all the same.
void Request::Transfer(bool trustsLength) {
  EndTransfer();
  result_ = CURLE_OK;
  connected_ = paused_ = headEnded_ = headComplete_ = false;
  isRedirected_ = false;
  redirect_.reset();
  ForgetHead();
  body_.clear();
  easy_ = std::exchange(connection_->idle, nullptr);
  if (easy_ == nullptr) easy_ = curl_easy_init();
  if (easy_ == nullptr) return;
  Configure();
  curl_easy_setopt(easy_, CURLOPT_IGNORE_CONTENT_LENGTH, trustsLength ? 0L : 1L);
  done_ = curl_multi_add_handle(connection_->multi, easy_) != CURLM_OK;
  DriveUntil([this] { return headComplete_; });
}

void Request::Configure() {
  const Session& session = *connection_->session;
  curl_easy_setopt(easy_, CURLOPT_URL, url_.c_str());
  curl_easy_setopt(easy_, CURLOPT_USERAGENT, session.agent.c_str());
  curl_easy_setopt(easy_, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
  curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy_, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(easy_, CURLOPT_MAXREDIRS, kMaxRedirects);
  curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy_, CURLOPT_BUFFERSIZE, kReceiveBuffer);
  curl_easy_setopt(easy_, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(session.timeout));
  // Don't wait for a name to be resolved either.
  curl_easy_setopt(easy_, CURLOPT_QUICK_EXIT, 1L);
  curl_easy_setopt(easy_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, &Request::OnHeader);
  curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &Request::OnBody);
  curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(easy_, CURLOPT_PREREQFUNCTION, &Request::OnConnected);
  curl_easy_setopt(easy_, CURLOPT_PREREQDATA, this);
  if (connection_->HasCredentials()) {
    curl_easy_setopt(easy_, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_ANY));
    curl_easy_setopt(easy_, CURLOPT_USERNAME, connection_->user.c_str());
    curl_easy_setopt(easy_, CURLOPT_PASSWORD, connection_->password.c_str());
  }
}

std::size_t Request::OnHeader(char* data, std::size_t, std::size_t size, void* request) {
  static_cast<Request*>(request)->TakeHeader({data, size});
  return size;
}

std::size_t Request::OnBody(char* data, std::size_t, std::size_t size, void* request) {
  auto* self = static_cast<Request*>(request);
  self->headComplete_ = true;
  if (self->Buffered() >= kMaxBuffered) {
    self->paused_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  self->NoteActivity();
  self->body_.append(data, size);
  bodyBytesReceived += static_cast<std::int64_t>(size);
  return size;
}

int Request::OnConnected(void* request, char*, char*, int, int) {
  auto* self = static_cast<Request*>(request);
  self->connected_ = true;
  self->NoteActivity();
  return CURL_PREREQFUNC_OK;
}

// A response that libcurl acts on by itself, so that another one follows.
bool IsFollowed(std::string_view status) {
  return status.front() == '1' || status.front() == '3' || status == "401" || status == "407";
}

void Request::TakeHeader(std::string_view line) {
  static constexpr std::string_view kLength = "content-length:";
  static constexpr std::string_view kEncoding = "content-encoding:";
  static constexpr std::string_view kLocation = "location:";
  NoteActivity();
  while (!line.empty() && IsWhiteSpace(line.back())) line.remove_suffix(1);
  if (StartsWithoutCase(line, "http/")) {
    const std::size_t space = std::min(line.find(' '), line.size());
    line.remove_prefix(space);
    ForgetHead();
    status_ = line.substr(std::min<std::size_t>(1, line.size()), 3);
    headEnded_ = false;
  } else if (StartsWithoutCase(line, kLength)) {
    line.remove_prefix(kLength.size());
    contentLength_ = Trimmed(line, kWhiteSpace);
  } else if (StartsWithoutCase(line, kEncoding)) {
    line.remove_prefix(kEncoding.size());
    contentEncoding_ = Trimmed(line, kWhiteSpace);
  } else if (StartsWithoutCase(line, kLocation)) {
    // libcurl itself counts a request that is repeated with credentials as another one.
    isRedirected_ = isRedirected_ || (status_ && status_->starts_with('3'));
  } else if (line.empty() && status_ && !status_->empty()) {
    headEnded_ = true;
    headComplete_ = !IsFollowed(*status_);
  }
}

void Request::DriveUntil(const std::function<bool()>& reached) {
  NoteActivity();
  while (!done_ && !reached()) {
    int running = 0;
    if (curl_multi_perform(connection_->multi, &running) != CURLM_OK) {
      result_ = CURLE_RECV_ERROR;
      EndTransfer();
      return;
    }
    TakeResult();
    if (!done_ && !reached()) Wait();
  }
}

void Request::TakeResult() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(connection_->multi, &left)) {
    if (message->msg != CURLMSG_DONE || message->easy_handle != easy_) continue;
    result_ = message->data.result;
    EndTransfer();
    return;
  }
}

// Waits for the network. libcurl limits the wait for a connection; after that, the time since the
// last byte counts.
void Request::Wait() {
  const std::uint32_t timeout = connection_->session->timeout;
  const std::uint32_t quiet = TickCount() - lastActivity_;
  if (connected_ && quiet >= timeout) {
    result_ = CURLE_OPERATION_TIMEDOUT;
    EndTransfer();
    return;
  }
  const std::uint32_t left = connected_ ? timeout - quiet : timeout;
  curl_multi_poll(connection_->multi, nullptr, 0, static_cast<int>(left) + 1, nullptr);
}

void Request::EndTransfer() {
  done_ = true;
  if (easy_ == nullptr) return;
  NoteRedirect();
  curl_multi_remove_handle(connection_->multi, easy_);
  curl_easy_cleanup(std::exchange(connection_->idle, std::exchange(easy_, nullptr)));
}

std::size_t Request::WaitForData() {
  if (Buffered() == 0) {
    body_.clear();
    read_ = 0;
    if (paused_ && easy_ != nullptr) {
      paused_ = false;
      curl_easy_pause(easy_, CURLPAUSE_CONT);
    }
    DriveUntil([this] { return Buffered() > 0; });
  }
  return Buffered();
}

bool Request::Read(char* buffer, std::size_t size, std::uint32_t& read) {
  while (read < size && WaitForData() > 0) {
    const std::size_t count = std::min(size - read, Buffered());
    std::memcpy(buffer + read, body_.data() + read_, count);
    read_ += count;
    read += static_cast<std::uint32_t>(count);
  }
  const bool isWhole = result_ == CURLE_OK || result_ == CURLE_PARTIAL_FILE;
  return read == size || isWhole;
}

// Handles are numbers in one table, so that closing one twice, or while it is in use, is harmless:
// whoever uses an object shares its ownership. The table is never destroyed, since a worker may run
// until the very end of the process.
using HandleObject =
    std::variant<std::shared_ptr<Session>, std::shared_ptr<Connection>, std::shared_ptr<Request>>;

struct HandleTable {
  std::mutex mutex;
  std::map<HttpHandle, HandleObject> objects;
  HttpHandle last = kNoHttpHandle;
};

HandleTable& Handles() {
  static auto* table = new HandleTable;
  return *table;
}

HttpHandle Enter(HandleObject object) {
  HandleTable& table = Handles();
  const std::lock_guard lock(table.mutex);
  table.objects.emplace(++table.last, std::move(object));
  return table.last;
}

template <typename Object>
std::shared_ptr<Object> Find(HttpHandle handle) {
  HandleTable& table = Handles();
  const std::lock_guard lock(table.mutex);
  const auto found = table.objects.find(handle);
  if (found == table.objects.end()) return nullptr;
  const auto* object = std::get_if<std::shared_ptr<Object>>(&found->second);
  return object == nullptr ? nullptr : *object;
}

// Whether `object` was opened on `parent`. A handle's number is higher than that of what it was
// opened on, so one pass in order finds all descendants.
bool IsOpenedBelow(const HandleObject& object, const HandleObject& parent) {
  if (const auto* request = std::get_if<std::shared_ptr<Request>>(&object)) {
    const auto* connection = std::get_if<std::shared_ptr<Connection>>(&parent);
    return connection != nullptr && (*request)->connection() == *connection;
  }
  if (const auto* connection = std::get_if<std::shared_ptr<Connection>>(&object)) {
    const auto* session = std::get_if<std::shared_ptr<Session>>(&parent);
    return session != nullptr && (*connection)->session == *session;
  }
  return false;
}

// The path as part of a URL, which can't contain a space, and where "#" would begin a fragment.
std::string UrlPath(const std::string& path) {
  const std::string escaped = Escaped(path, [](char c) { return c == ' ' || c == '#'; });
  return path.starts_with('/') ? escaped : "/" + escaped;
}

bool StartLibrary() {
  static const bool started = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return started;
}

}  // namespace

HttpHandle OpenHttpSession(const char* agent) {
  if (!StartLibrary()) return kNoHttpHandle;
  auto session = std::make_shared<Session>();
  session->agent = agent;
  return Enter(std::move(session));
}

void SetHttpTimeouts(HttpHandle session, std::uint32_t milliseconds) {
  if (const auto object = Find<Session>(session)) object->timeout = milliseconds;
}

HttpHandle ConnectHttp(HttpHandle session, const std::string& host, std::uint16_t port,
                       const std::string& user, const std::string& password) {
  auto sessionObject = Find<Session>(session);
  if (sessionObject == nullptr || !IsHost(host)) return kNoHttpHandle;
  auto connection = std::make_shared<Connection>();
  connection->session = std::move(sessionObject);
  connection->authority = port == 0 ? host : host + ":" + std::to_string(port);
  connection->user = user;
  connection->password = password;
  connection->multi = curl_multi_init();
  if (connection->multi == nullptr) return kNoHttpHandle;
  curl_multi_setopt(connection->multi, CURLMOPT_MAXCONNECTS, 1L);
  return Enter(std::move(connection));
}

HttpHandle OpenHttpGet(HttpHandle connection, const std::string& path) {
  auto object = Find<Connection>(connection);
  if (object == nullptr || HasControl(path)) return kNoHttpHandle;
  std::string url = "http://" + object->authority + UrlPath(path);
  return Enter(std::make_shared<Request>(std::move(object), std::move(url)));
}

void SendHttpRequest(HttpHandle request) {
  if (const auto object = Find<Request>(request)) object->Send();
}

std::optional<std::string> QueryHttpField(HttpHandle request, HttpField field,
                                          std::size_t bufferSize) {
  const auto object = Find<Request>(request);
  if (object == nullptr) return std::nullopt;
  const std::optional<std::string>& text = object->Field(field);
  return text && text->size() < bufferSize ? text : std::nullopt;
}

HttpFailure QueryHttpFailure(HttpHandle request) {
  const auto object = Find<Request>(request);
  return object == nullptr ? HttpFailure::kBroken : object->Failure();
}

std::optional<std::string> QueryHttpRedirect(HttpHandle request) {
  const auto object = Find<Request>(request);
  return object == nullptr ? std::nullopt : object->Redirect();
}

std::uint32_t QueryHttpDataAvailable(HttpHandle request) {
  const auto object = Find<Request>(request);
  return object == nullptr ? 0 : static_cast<std::uint32_t>(object->WaitForData());
}

bool ReadHttp(HttpHandle request, void* buffer, std::uint32_t size, std::uint32_t& read) {
  read = 0;
  const auto object = Find<Request>(request);
  return object != nullptr && object->Read(static_cast<char*>(buffer), size, read);
}

void CloseHttpHandle(HttpHandle handle) {
  HandleTable& table = Handles();
  std::vector<HandleObject> closed;  // declared first, so that they are destroyed after the unlock
  const std::lock_guard lock(table.mutex);
  const auto found = table.objects.find(handle);
  if (found == table.objects.end()) return;
  closed.push_back(std::move(found->second));
  table.objects.erase(found);
  for (auto it = table.objects.begin(); it != table.objects.end();) {
    const bool isBelow = std::any_of(closed.begin(), closed.end(), [&](const HandleObject& above) {
      return IsOpenedBelow(it->second, above);
    });
    if (isBelow) closed.push_back(std::move(it->second));
    it = isBelow ? table.objects.erase(it) : std::next(it);
  }
}

}  // namespace velmora::platform
