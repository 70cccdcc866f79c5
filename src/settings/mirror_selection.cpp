#include "settings/mirror_selection.h"

#include <cstdlib>

#include "platform/clock.h"
#include "settings/patcher_settings.h"
#include "settings/probe_client.h"
#include "settings/settings_store.h"

namespace velmora {

BaseUrlTable Mirrors;

std::optional<platform::UrlParts> CrackServerUrl(const std::string& url) {
  auto parts = platform::CrackUrl(url);
  return parts && !parts->host.empty() ? parts : std::nullopt;
}

namespace {

void ReadMirrors() {
  Mirrors.count = 0;
  for (int n = 1; n <= kMaxMirrors; ++n) {
    const std::string url = ReadSetting("BaseURL" + std::to_string(n));
    if (url.empty()) return;
    const std::optional<platform::UrlParts> parts = CrackServerUrl(url);
    if (!parts) continue;
    Mirrors.entries[Mirrors.count++] = {parts->host, parts->port, parts->path};
  }
}

}  // namespace

void SelectMirror() {
  ReadMirrors();
  std::srand(platform::TickCount());
  if (Mirrors.count == 0) return;
  const std::size_t choice = static_cast<std::size_t>(std::rand()) % Mirrors.count;
  const BaseUrlEntry& mirror = Mirrors.entries[choice];
  Settings.ServerHost = mirror.host;
  Settings.DataPath = mirror.path;
  Settings.ServerPort = mirror.port;
}

void ProbeCdn() {
  ProbeClient client("VelmoraUpdate_CDN");
  if (!client.Connect(Settings.ServerHost.c_str())) return;
  const char* body = client.FetchBody(Settings.DataPath + "/enable.cdn");
  if (body == nullptr) return;
  const std::optional<platform::UrlParts> parts = CrackServerUrl(body);
  if (parts) {
    Settings.ServerHost = parts->host;
    Settings.DataPath = parts->path;
    Settings.ServerPort = kProbePort;
  }
  client.FreeBody();
}

}  // namespace velmora
