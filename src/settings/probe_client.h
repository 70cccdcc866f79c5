// A small HTTP client that reads one short file into memory. It owns its handles and the body. One
// thread. Every wait is bounded by ten seconds.
#pragma once

#include <cstdint>
#include <string>

#include "base/data_block.h"
#include "platform/http.h"

namespace velmora {

// The probe uses this port whatever port the settings name, and so does a server it redirects to.
inline constexpr std::uint16_t kProbePort = 80;

class ProbeClient {
 public:
  // `agent` must outlive the client.
  explicit ProbeClient(const char* agent);
  ~ProbeClient();
  ProbeClient(const ProbeClient&) = delete;
  ProbeClient& operator=(const ProbeClient&) = delete;

  // Opens session and connection, without traffic. A null `host` keeps the previous one, which is
  // "localhost" at first. False on failure.
  [[nodiscard]] bool Connect(const char* host);

  // The body of `path` with a terminating zero byte, valid until the next call. Null unless the
  // response has status 200, a usable Content-Length and an unbroken body. `status` and `length`,
  // if given, receive the response's numbers, or 0.
  [[nodiscard]] const char* FetchBody(const std::string& path, std::int32_t* status = nullptr,
                                      std::int32_t* length = nullptr);

  void FreeBody();
  void Close();

 private:
  bool ReadBody(std::int32_t length);

  DataBlock body_;
  const char* agent_;
  std::string host_ = "localhost";
  platform::HttpHandle session_ = platform::kNoHttpHandle;
  platform::HttpHandle connection_ = platform::kNoHttpHandle;
  platform::HttpHandle request_ = platform::kNoHttpHandle;
};

}  // namespace velmora
