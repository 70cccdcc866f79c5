#include "support/loopback_server.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <thread>

namespace velmora::test {
namespace {

#ifdef _WIN32
using Socket = SOCKET;
constexpr Socket kNoSocket = INVALID_SOCKET;
constexpr int kNoSignal = 0;
using Length = int;
void CloseSocket(Socket socket) { closesocket(socket); }
void StartSockets() {
  static const bool started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
  }();
  static_cast<void>(started);
}
#else
using Socket = int;
constexpr Socket kNoSocket = -1;
constexpr int kNoSignal = MSG_NOSIGNAL;
using Length = socklen_t;
void CloseSocket(Socket socket) { close(socket); }
void StartSockets() {}
#endif

enum Direction { kRead, kWrite };

void ResetSocket(Socket socket) {
  const linger now{1, 0};
  setsockopt(socket, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&now), sizeof now);
}

std::string TargetOf(const std::string& head) {
  const std::size_t start = head.find(' ');
  const std::size_t end = head.find(" HTTP/", start);
  return start == std::string::npos || end == std::string::npos
             ? head
             : head.substr(start + 1, end - start - 1);
}

}  // namespace

Reply Ok(const std::string& body) { return Status(200, "", body); }

Reply Status(int code, const std::string& headers, const std::string& body) {
  return {"HTTP/1.1 " + std::to_string(code) + " X\r\n" + headers +
              "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body,
          Reply::End::kKeep};
}

Reply Raw(const std::string& headers, const std::string& body, Reply::End end) {
  return {"HTTP/1.1 200 OK\r\n" + headers + "\r\n" + body, end};
}

LoopbackServer::Answer LoopbackServer::Serving(std::map<std::string, std::string> files) {
  return [files = std::move(files)](const ServedRequest& request) {
    const auto found = files.find(request.path);
    return found == files.end() ? Status(404) : Ok(found->second);
  };
}

struct LoopbackServer::State {
  Answer answer;
  Socket listener = kNoSocket;
  std::uint16_t port = 0;
  mutable std::mutex mutex;
  std::atomic<bool> ending = false;
  std::vector<ServedRequest> requests;
  std::set<Socket> open;
  std::vector<std::thread> threads;  // the first one accepts

  sockaddr_in name{};  // where it listens

  void Listen(std::uint16_t wanted, const char* address);
  void WakeAccept() const;
  void Accept();
  void Serve(Socket socket, int connection);
  bool ServeOne(Socket socket, int connection, std::string& pending);
  bool IsReady(Socket socket, Direction direction) const;
  int Receive(Socket socket, char* buffer, int size) const;
  bool Send(Socket socket, const std::string& bytes) const;
  bool Send(Socket socket, const Reply& reply) const;
  void Finish(Socket socket);
};

void LoopbackServer::State::Listen(std::uint16_t wanted, const char* address) {
  name.sin_family = AF_INET;
  name.sin_port = htons(wanted);
  inet_pton(AF_INET, address, &name.sin_addr);
  Socket socketHere = socket(AF_INET, SOCK_STREAM, 0);
  const int yes = 1;
  setsockopt(socketHere, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&yes), sizeof yes);
  if (bind(socketHere, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 ||
      listen(socketHere, 64) != 0) {
    CloseSocket(socketHere);
    return;
  }
  Length length = sizeof name;
  getsockname(socketHere, reinterpret_cast<sockaddr*>(&name), &length);
  port = ntohs(name.sin_port);
  listener = socketHere;
}

// Not every system ends a waiting accept when its socket is closed; a visitor does everywhere.
void LoopbackServer::State::WakeAccept() const {
  const Socket visitor = socket(AF_INET, SOCK_STREAM, 0);
  connect(visitor, reinterpret_cast<const sockaddr*>(&name), sizeof name);
  CloseSocket(visitor);
}

void LoopbackServer::State::Accept() {
  for (int connection = 1;; ++connection) {
    const Socket client = accept(listener, nullptr, nullptr);
    const std::lock_guard lock(mutex);
    if (ending || client == kNoSocket) {
      if (client != kNoSocket) CloseSocket(client);
      return;
    }
    const int yes = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&yes), sizeof yes);
    open.insert(client);
    threads.emplace_back([this, client, connection] { Serve(client, connection); });
  }
}

void LoopbackServer::State::Serve(Socket socket, int connection) {
  std::string pending;
  while (ServeOne(socket, connection, pending)) {
  }
  Finish(socket);
}

void LoopbackServer::State::Finish(Socket socket) {
  const std::lock_guard lock(mutex);
  if (open.erase(socket) != 0) CloseSocket(socket);
}

// Waits until the socket can be read or written, false if the server ends before: a waiting call
// can't be woken on every system.
bool LoopbackServer::State::IsReady(Socket socket, Direction direction) const {
  while (!ending) {
    fd_set waiting;
    FD_ZERO(&waiting);
    FD_SET(socket, &waiting);
    timeval step{0, 20000};
    const bool reads = direction == kRead;
    if (select(static_cast<int>(socket) + 1, reads ? &waiting : nullptr, reads ? nullptr : &waiting,
               nullptr, &step) > 0) {
      return true;
    }
  }
  return false;
}

int LoopbackServer::State::Receive(Socket socket, char* buffer, int size) const {
  if (!IsReady(socket, kRead)) return 0;
  return static_cast<int>(recv(socket, buffer, static_cast<Length>(size), 0));
}

// As send, all of it, but also over when the server ends.
bool LoopbackServer::State::Send(Socket socket, const std::string& bytes) const {
  constexpr std::size_t kPiece = 4096;  // a socket that takes any takes so much without waiting
  for (std::size_t sent = 0; sent < bytes.size();) {
    if (!IsReady(socket, kWrite)) return false;
    const std::size_t length = std::min(kPiece, bytes.size() - sent);
    const auto count = send(socket, bytes.data() + sent, static_cast<Length>(length), kNoSignal);
    if (count <= 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

bool LoopbackServer::State::Send(Socket socket, const Reply& reply) const {
  constexpr std::size_t kRepeated = std::size_t{16} << 20;
  bool sent = Send(socket, reply.bytes);
  for (std::size_t i = 0; sent && !reply.repeated.empty() && i < kRepeated;
       i += reply.repeated.size()) {
    sent = Send(socket, reply.repeated);
  }
  return sent;
}

// False when the connection is over.
bool LoopbackServer::State::ServeOne(Socket socket, int connection, std::string& pending) {
  std::size_t end = pending.find("\r\n\r\n");
  while (end == std::string::npos) {
    char buffer[4096];
    const auto count = Receive(socket, buffer, sizeof buffer);
    if (count <= 0) return false;
    pending.append(buffer, static_cast<std::size_t>(count));
    end = pending.find("\r\n\r\n");
  }
  ServedRequest request{"", pending.substr(0, end + 2), connection};
  request.path = TargetOf(request.head);
  pending.erase(0, end + 4);

  Reply reply;
  {
    const std::lock_guard lock(mutex);
    requests.push_back(request);
    reply = answer(request);
  }
  if (!Send(socket, reply)) return false;
  if (reply.end == Reply::End::kReset) ResetSocket(socket);
  if (reply.end == Reply::End::kStall) {
    char byte = 0;
    while (Receive(socket, &byte, 1) > 0) {
    }
  }
  return reply.end == Reply::End::kKeep;
}

LoopbackServer::LoopbackServer(Answer answer, std::uint16_t port, const char* address)
    : state_(std::make_unique<State>()) {
  StartSockets();
  state_->answer = std::move(answer);
  state_->Listen(port, address);
  if (!IsListening()) return;
  const std::lock_guard lock(state_->mutex);
  state_->threads.emplace_back([state = state_.get()] { state->Accept(); });
}

LoopbackServer::~LoopbackServer() {
  if (!IsListening()) return;
  std::vector<std::thread> threads;
  {
    const std::lock_guard lock(state_->mutex);
    state_->ending = true;
    threads = std::move(state_->threads);
  }
  state_->WakeAccept();
  for (std::thread& thread : threads) thread.join();
  CloseSocket(state_->listener);
}

bool LoopbackServer::IsListening() const { return state_->listener != kNoSocket; }

std::uint16_t LoopbackServer::port() const { return state_->port; }

std::vector<ServedRequest> LoopbackServer::Requests() const {
  const std::lock_guard lock(state_->mutex);
  return state_->requests;
}

}  // namespace velmora::test
