// A small HTTP client that fetches one short file whole. It owns its handles and the body. One
// thread; every wait is bounded by ten seconds.
#pragma once

#include <cstdint>
#include <string>

#include "platform/data_block.h"
#include "platform/http.h"

namespace velmora {

// The probe asks on this port whatever port the settings name, and a redirection leads to it.
inline constexpr std::uint16_t kProbePort = 80;

class ProbeClient {
 public:
  // `agent` must outlive the client.
  explicit ProbeClient(const char* agent);
  ~ProbeClient();
  ProbeClient(const ProbeClient&) = delete;
  ProbeClient& operator=(const ProbeClient&) = delete;

  // Opens session and connection; a null `host` leaves the one named before, at first "localhost".
  // True if there is a connection to ask on, for which nothing has been sent yet.
  [[nodiscard]] bool Connect(const char* host);

  // The body of `path`, with a zero byte behind it, until the next call of a member; null unless
  // the server answered 200 with a usable Content-Length. `status` and `length`, if given, get the
  // answer's numbers, 0 where there is none.
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
