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
#include <thread>
#include <utility>

namespace velmora::test {
namespace {

constexpr std::size_t kChunk = 4096;  // a socket that takes any byte takes so many at once

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
  std::mutex mutex;
  std::atomic<bool> ending = false;
  std::vector<ServedRequest> requests;
  std::vector<std::thread> threads;  // one for each connection
  std::thread acceptor;

  void Listen(std::uint16_t wanted, const char* address);
  void Accept();
  void Serve(Socket socket, int connection);
  bool ServeOne(Socket socket, int connection, std::string& pending);
  bool IsReady(Socket socket, bool forWriting) const;
  int Receive(Socket socket, char* buffer, int size) const;
  bool Send(Socket socket, const std::string& bytes) const;
  bool Send(Socket socket, const Reply& reply) const;
};

void LoopbackServer::State::Listen(std::uint16_t wanted, const char* address) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(wanted);
  inet_pton(AF_INET, address, &name.sin_addr);
  listener = socket(AF_INET, SOCK_STREAM, 0);
  const int yes = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&yes), sizeof yes);
  if (bind(listener, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 ||
      listen(listener, 64) != 0) {
    CloseSocket(std::exchange(listener, kNoSocket));
    return;
  }
  Length length = sizeof name;
  getsockname(listener, reinterpret_cast<sockaddr*>(&name), &length);
  port = ntohs(name.sin_port);
}

void LoopbackServer::State::Accept() {
  for (int connection = 1; IsReady(listener, false); ++connection) {
    const Socket client = accept(listener, nullptr, nullptr);
    if (client == kNoSocket) continue;
    const int yes = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&yes), sizeof yes);
    threads.emplace_back([this, client, connection] { Serve(client, connection); });
  }
}

void LoopbackServer::State::Serve(Socket socket, int connection) {
  std::string pending;
  while (ServeOne(socket, connection, pending)) {
  }
  CloseSocket(socket);
}

// Waits until the socket can be read or written; false if the server ends first. No call that waits
// for ever can be woken on every system.
bool LoopbackServer::State::IsReady(Socket socket, bool forWriting) const {
  while (!ending) {
    fd_set sockets;
    FD_ZERO(&sockets);
    FD_SET(socket, &sockets);
    timeval step{0, 20000};
    if (select(static_cast<int>(socket) + 1, forWriting ? nullptr : &sockets,
               forWriting ? &sockets : nullptr, nullptr, &step) > 0) {
      return true;
    }
  }
  return false;
}

int LoopbackServer::State::Receive(Socket socket, char* buffer, int size) const {
  if (!IsReady(socket, false)) return 0;
  return static_cast<int>(recv(socket, buffer, static_cast<Length>(size), 0));
}

bool LoopbackServer::State::Send(Socket socket, const std::string& bytes) const {
  for (std::size_t sent = 0; sent < bytes.size();) {
    if (!IsReady(socket, true)) return false;
    const std::size_t length = std::min(kChunk, bytes.size() - sent);
    const auto count = send(socket, bytes.data() + sent, static_cast<Length>(length), kNoSignal);
    if (count <= 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

bool LoopbackServer::State::Send(Socket socket, const Reply& reply) const {
  constexpr std::size_t kRepeated = std::size_t{16} << 20;
  if (!Send(socket, reply.bytes)) return false;
  if (reply.repeated.empty()) return true;
  std::string block;
  while (block.size() < kChunk) block += reply.repeated;
  for (std::size_t sent = 0; sent < kRepeated; sent += block.size()) {
    if (!Send(socket, block)) return false;
  }
  return true;
}

// False when the connection is over.
bool LoopbackServer::State::ServeOne(Socket socket, int connection, std::string& pending) {
  char buffer[4096];
  std::size_t end = std::string::npos;
  while ((end = pending.find("\r\n\r\n")) == std::string::npos) {
    const int count = Receive(socket, buffer, sizeof buffer);
    if (count <= 0) return false;
    pending.append(buffer, static_cast<std::size_t>(count));
  }
  const std::string head = pending.substr(0, end + 2);
  pending.erase(0, end + 4);

  Reply reply;
  {
    const std::lock_guard lock(mutex);
    requests.push_back({TargetOf(head), head, connection});
    reply = answer(requests.back());
  }
  if (!Send(socket, reply)) return false;
  if (reply.end == Reply::End::kReset) ResetSocket(socket);
  while (reply.end == Reply::End::kStall && Receive(socket, buffer, sizeof buffer) > 0) {
  }
  return reply.end == Reply::End::kKeep;
}

LoopbackServer::LoopbackServer(Answer answer, std::uint16_t port, const char* address)
    : state_(std::make_unique<State>()) {
  StartSockets();
  state_->answer = std::move(answer);
  state_->Listen(port, address);
  if (IsListening()) state_->acceptor = std::thread([state = state_.get()] { state->Accept(); });
}

LoopbackServer::~LoopbackServer() {
  if (!IsListening()) return;
  state_->ending = true;
  state_->acceptor.join();
  for (std::thread& thread : state_->threads) thread.join();
  CloseSocket(state_->listener);
}

bool LoopbackServer::IsListening() const { return state_->listener != kNoSocket; }

std::uint16_t LoopbackServer::port() const { return state_->port; }

std::vector<ServedRequest> LoopbackServer::Requests() const {
  const std::lock_guard lock(state_->mutex);
  return state_->requests;
}

}  // namespace velmora::test
