// The servers that players come to by a settings file.
#pragma once

#include <string>
#include <vector>

#include "publish/verify/site.h"

namespace velmora::publish {

struct PlayerServers {
  std::vector<Server> servers;  // each once
  std::string listName;
};

// All mirrors of the file, of which each player gets one; without mirrors its one server. Throws
// PublishError if there is none. Main thread: the patcher's own settings are filled on the way.
[[nodiscard]] PlayerServers ReadPlayerServers(const std::string& settingsPath);

// The server of a URL as BaseURL1 would hold it. Throws PublishError for any other text.
[[nodiscard]] Server ServerOf(const std::string& url);

// Where the server's file enable.cdn sends its players, which is the server itself if there is no
// such file. One request.
[[nodiscard]] Server RedirectedServer(const Server& server);

}  // namespace velmora::publish
