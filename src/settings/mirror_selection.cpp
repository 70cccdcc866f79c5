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

std::optional<std::string> FetchRedirection(const std::string& host, const std::string& dataPath) {
  ProbeClient client("VelmoraUpdate_CDN");
  if (!client.Connect(host.c_str())) return std::nullopt;
  const char* body = client.FetchBody(dataPath + "/enable.cdn");
  if (body == nullptr) return std::nullopt;
  return body;
}

std::optional<BaseUrlEntry> RedirectionTarget(const std::string& text) {
  const std::optional<platform::UrlParts> parts = CrackServerUrl(text);
  if (!parts) return std::nullopt;
  return BaseUrlEntry{parts->host, kProbePort, parts->path};
}

void ProbeCdn() {
  const auto text = FetchRedirection(Settings.ServerHost, Settings.DataPath);
  const auto target = text ? RedirectionTarget(*text) : std::nullopt;
  if (!target) return;
  Settings.ServerHost = target->host;
  Settings.DataPath = target->path;
  Settings.ServerPort = target->port;
}

}  // namespace velmora
