// The servers to which a settings file leads players.
#pragma once

#include <string>
#include <vector>

#include "publish/verify/origin.h"

namespace velmora::publish {

struct PlayerServers {
  std::vector<Server> servers;  // each once
  std::string listName;
};

// All mirrors of the file, of which each player gets one, or its single server if it has no
// mirrors. Throws PublishError if there is none. For the main thread, since this fills the
// patcher's settings.
[[nodiscard]] PlayerServers ReadPlayerServers(const std::string& settingsPath);

// The server of a URL, in the form that BaseURL1 takes. Throws PublishError for any other text.
[[nodiscard]] Server ServerOf(const std::string& url);

// The server to which the server's file enable.cdn redirects its players, or the server itself if
// there is no such file. Takes one request.
[[nodiscard]] Server RedirectedServer(const Server& server);

}  // namespace velmora::publish
