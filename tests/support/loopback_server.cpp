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
#include <string_view>
#include <thread>
#include <utility>

namespace velmora::test {
namespace {

constexpr std::size_t kChunk = 4096;  // a socket that takes any byte takes so many at once

#ifdef _WIN32
using Socket = SOCKET;
constexpr Socket kNoSocket = INVALID_SOCKET;
constexpr int kNoSignal = 0;
void CloseSocket(Socket socket) { closesocket(socket); }
void StartSockets() {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
}
#else
using Socket = int;
constexpr Socket kNoSocket = -1;
constexpr int kNoSignal = MSG_NOSIGNAL;
void CloseSocket(Socket socket) { close(socket); }
void StartSockets() {}
#endif

template <typename Value>
void SetOption(Socket socket, int level, int option, Value value) {
  setsockopt(socket, level, option, reinterpret_cast<const char*>(&value), sizeof value);
}

// What stands between the method and the version.
std::string TargetOf(const std::string& head) {
  const std::size_t start = head.find(' ') + 1;
  return head.substr(start, head.find(" HTTP/", start) - start);
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
  void Listen(std::uint16_t wanted, const char* address) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(wanted);
    inet_pton(AF_INET, address, &name.sin_addr);
    listener = socket(AF_INET, SOCK_STREAM, 0);
    SetOption(listener, SOL_SOCKET, SO_REUSEADDR, 1);
    socklen_t length = sizeof name;
    if (bind(listener, reinterpret_cast<sockaddr*>(&name), length) != 0 ||
        listen(listener, 64) != 0) {
      CloseSocket(std::exchange(listener, kNoSocket));
      return;
    }
    getsockname(listener, reinterpret_cast<sockaddr*>(&name), &length);
    port = ntohs(name.sin_port);
    acceptor = std::thread([this] { Accept(); });
  }

  void Accept() {
    for (int connection = 1; IsReady(listener, false); ++connection) {
      const Socket client = accept(listener, nullptr, nullptr);
      if (client == kNoSocket) continue;
      SetOption(client, IPPROTO_TCP, TCP_NODELAY, 1);
      threads.emplace_back([this, client, connection] {
        std::string pending;
        while (ServeOne(client, connection, pending)) {
        }
        CloseSocket(client);
      });
    }
  }

  // Waits until the socket can be read or written; false if the server ends first. No call that
  // waits for ever can be woken on every system.
  bool IsReady(Socket socket, bool forWriting) const {
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

  // Appends what comes next; false if nothing does.
  bool Receive(Socket socket, std::string& text) const {
    char buffer[kChunk];
    const auto count = IsReady(socket, false) ? recv(socket, buffer, sizeof buffer, 0) : 0;
    if (count > 0) text.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
  }

  bool Send(Socket socket, std::string_view bytes) const {
    while (!bytes.empty() && IsReady(socket, true)) {
      const auto length = static_cast<socklen_t>(std::min(kChunk, bytes.size()));
      const auto count = send(socket, bytes.data(), length, kNoSignal);
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return bytes.empty();
  }

  bool Send(Socket socket, const Reply& reply) const {
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
  bool ServeOne(Socket socket, int connection, std::string& pending) {
    std::size_t end = std::string::npos;
    while ((end = pending.find("\r\n\r\n")) == std::string::npos) {
      if (!Receive(socket, pending)) return false;
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
    if (reply.end == Reply::End::kReset) SetOption(socket, SOL_SOCKET, SO_LINGER, linger{1, 0});
    while (reply.end == Reply::End::kStall && Receive(socket, pending)) {
    }
    return reply.end == Reply::End::kKeep;
  }

  Answer answer;
  Socket listener = kNoSocket;
  std::uint16_t port = 0;
  std::mutex mutex;
  std::atomic<bool> ending = false;
  std::vector<ServedRequest> requests;
  std::vector<std::thread> threads;  // one for each connection
  std::thread acceptor;
};

LoopbackServer::LoopbackServer(Answer answer, std::uint16_t port, const char* address)
    : state_(std::make_unique<State>()) {
  StartSockets();
  state_->answer = std::move(answer);
  state_->Listen(port, address);
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
