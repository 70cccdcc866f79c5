#include "publish/verify/player_servers.h"

#include <algorithm>

#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"
#include "publish/common/redirection.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"
#include "settings/settings_store.h"

namespace velmora::publish {

PlayerServers ReadPlayerServers(const std::filesystem::path& settings) {
  Settings.SettingsPath = platform::ByteNameOf(settings);
  ReadSettings();
  ReadMirrors();
  std::vector<BaseUrlEntry> places(Mirrors.entries.begin(),
                                   Mirrors.entries.begin() + static_cast<long>(Mirrors.count));
  if (places.empty() && !Settings.ServerHost.empty()) {
    places.push_back({Settings.ServerHost, Settings.ServerPort, Settings.DataPath});
  }
  if (places.empty()) throw PublishError(ShownPath(settings) + ": leads to no server");

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
  if (!parts->user.empty() || !parts->password.empty()) {
    throw PublishError(
        "the address has a user or a password: give them by --user and "
        "--password-file");
  }
  return {parts->host, parts->port, parts->path, "", ""};
}

Redirection RedirectionOf(const Server& server) {
  const auto text = FetchRedirection(server.host, server.dataPath);
  if (!text) return {server, {}};
  Redirection result{server, RedirectionProblems(*text)};
  if (const auto target = RedirectionTarget(*text)) {
    result.target.host = target->host;
    result.target.port = target->port;
    result.target.dataPath = target->path;
  }
  return result;
}

std::vector<Problem> RedirectionProblems(const std::string& text) {
  if (IsWebPage(text)) {
    return {
        {ProblemKind::kPage,
         "a page, which redirects nobody; let the server answer 404 for files that it doesn't have",
         true}};
  }
  std::vector<Problem> problems;
  for (const RedirectionFlaw& flaw : RedirectionFlaws(text)) {
    problems.push_back({ProblemKind::kRedirection, flaw.what, flaw.isWarning});
  }
  return problems;
}

}  // namespace velmora::publish
