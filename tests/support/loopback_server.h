// An HTTP server on the loopback interface that does exactly what a test tells it, misbehaviour
// included.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace velmora::test {

struct ServedRequest {
  std::string path;    // the target of the request line, as it arrived
  std::string head;    // the request line and all headers
  int connection = 0;  // which connection it came on, from 1
};

struct Reply {
  enum class End {
    kKeep,   // the connection stays open for the next request
    kClose,  // closed in an orderly way
    kReset,  // closed with a reset
    kStall,  // nothing more is sent until the server ends
  };

  std::string bytes;  // status line, headers, body: all that is sent
  End end = End::kKeep;
  std::string repeated = {};  // sent after `bytes` again and again, 16 MiB in all
};

// 200 with Content-Length.
[[nodiscard]] Reply Ok(const std::string& body);
// Any status, with a body and Content-Length.
[[nodiscard]] Reply Status(int code, const std::string& headers = "",
                           const std::string& body = "gone");
// 200 with the headers given, each ending in CR LF, and a body that needn't agree with them.
[[nodiscard]] Reply Raw(const std::string& headers, const std::string& body,
                        Reply::End end = Reply::End::kClose);

class LoopbackServer {
 public:
  using Answer = std::function<Reply(const ServedRequest&)>;

  // Serves on a free port, or on `port` of `address`; `answer` is called on the server's threads,
  // one at a time. IsListening returns false if the port is unavailable.
  explicit LoopbackServer(Answer answer, std::uint16_t port = 0, const char* address = "127.0.0.1");
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  [[nodiscard]] bool IsListening() const;
  [[nodiscard]] std::uint16_t port() const;
  // All requests so far.
  [[nodiscard]] std::vector<ServedRequest> Requests() const;

  // Answers 200 with what `files` holds under a request's path, else 404.
  static Answer Serving(std::map<std::string, std::string> files);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace velmora::test
