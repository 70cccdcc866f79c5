#include "publish/verify/player_servers.h"

#include <algorithm>

#include "publish/common/publish_error.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"
#include "settings/settings_store.h"

namespace velmora::publish {

PlayerServers ReadPlayerServers(const std::string& settingsPath) {
  Settings.SettingsPath = settingsPath;
  ReadSettings();
  ReadMirrors();
  std::vector<BaseUrlEntry> places(Mirrors.entries.begin(),
                                   Mirrors.entries.begin() + static_cast<long>(Mirrors.count));
  if (places.empty() && !Settings.ServerHost.empty()) {
    places.push_back({Settings.ServerHost, Settings.ServerPort, Settings.DataPath});
  }
  if (places.empty()) throw PublishError(settingsPath + ": leads to no server");

  PlayerServers result;
  result.listName = Settings.DataFile;
  for (const BaseUrlEntry& place : places) {
    const Server server{place.host, place.port, place.path, Settings.FTPUserName,
                        Settings.FTPPassword};
    const bool isNew =
        std::none_of(result.servers.begin(), result.servers.end(),
                     [&](const Server& other) { return ServerName(other) == ServerName(server); });
    if (isNew) result.servers.push_back(server);
  }
  return result;
}

Server ServerOf(const std::string& url) {
  const auto parts = CrackServerUrl(url);
  if (!parts || parts->scheme != "http") {
    throw PublishError(url + ": is no URL of the form http://host:port/path");
  }
  return {parts->host, parts->port, parts->path, "", ""};
}

Server RedirectedServer(const Server& server) {
  const auto target = AskForRedirection(server.host, server.dataPath);
  if (!target) return server;
  return {target->host, target->port, target->path, server.user, server.password};
}

}  // namespace velmora::publish
