#include "settings/probe_client.h"

#include <optional>
#include <utility>

#include "base/text.h"

namespace velmora {
namespace {

constexpr std::uint32_t kProbeTimeout = 10000;
constexpr std::size_t kProbeHeaderBuffer = 4096;

void CloseIfOpen(platform::HttpHandle& handle) {
  if (handle != platform::kNoHttpHandle) {
    platform::CloseHttpHandle(std::exchange(handle, platform::kNoHttpHandle));
  }
}

std::optional<std::int32_t> QueryNumber(platform::HttpHandle request, platform::HttpField field) {
  const auto text = platform::QueryHttpField(request, field, kProbeHeaderBuffer);
  if (!text) return std::nullopt;
  return ToNumber(*text);
}

void SetIfGiven(std::int32_t* result, std::int32_t value) {
  if (result != nullptr) *result = value;
}

}  // namespace

ProbeClient::ProbeClient(const char* agent) : agent_(agent) {}

ProbeClient::~ProbeClient() { Close(); }

bool ProbeClient::Connect(const char* host) {
  if (host != nullptr) host_ = host;
  session_ = platform::OpenHttpSession(agent_);
  if (session_ == platform::kNoHttpHandle) return false;
  platform::SetHttpTimeouts(session_, kProbeTimeout);
  connection_ = platform::ConnectHttp(session_, host_, kProbePort, "", "");
  return connection_ != platform::kNoHttpHandle;
}

const char* ProbeClient::FetchBody(const std::string& path, std::int32_t* status,
                                   std::int32_t* length) {
  FreeBody();
  CloseIfOpen(request_);
  SetIfGiven(status, 0);
  SetIfGiven(length, 0);

  request_ = platform::OpenHttpGet(connection_, path);
  platform::SendHttpRequest(request_);

  const std::int32_t code = QueryNumber(request_, platform::HttpField::kStatusCode).value_or(0);
  SetIfGiven(status, code);
  if (code != 200) return nullptr;

  const auto announced = QueryNumber(request_, platform::HttpField::kContentLength);
  SetIfGiven(length, announced.value_or(0));
  if (!announced || *announced < 0) return nullptr;

  if (!body_.AllocateZeroed(static_cast<std::size_t>(*announced) + 1)) return nullptr;
  if (!ReadBody(*announced)) {
    FreeBody();
    return nullptr;
  }
  return reinterpret_cast<const char*>(body_.data());
}

// A read that succeeds is the last one, even if it returned fewer bytes. One that fails is repeated
// for the rest as long as it returns any bytes.
bool ProbeClient::ReadBody(std::int32_t length) {
  std::uint32_t received = 0;
  while (true) {
    std::uint32_t count = 0;
    const std::uint32_t wanted = static_cast<std::uint32_t>(length) - received;
    if (platform::ReadHttp(request_, body_.data() + received, wanted, count)) return true;
    if (count == 0) return false;
    received += count;
  }
}

void ProbeClient::FreeBody() { body_.Release(); }

void ProbeClient::Close() {
  CloseIfOpen(request_);
  CloseIfOpen(connection_);
  CloseIfOpen(session_);
  FreeBody();
}

}  // namespace velmora
