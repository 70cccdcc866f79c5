// The servers to which a settings file leads players.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "publish/verify/origin.h"
#include "publish/verify/payload_check.h"

namespace velmora::publish {

struct PlayerServers {
  std::vector<Server> servers;  // each once
  std::string listName;
};

// All mirrors of the file, of which each player gets one, or its single server if it has no
// mirrors. Throws PublishError if there is none. For the main thread, since this fills the
// patcher's settings.
[[nodiscard]] PlayerServers ReadPlayerServers(const std::filesystem::path& settings);

// The server of a URL, in the form that BaseURL1 takes. Throws PublishError for any other text,
// and for credentials in it.
[[nodiscard]] Server ServerOf(const std::string& url);

struct Redirection {
  Server target;  // the server itself if it redirects nobody
  std::vector<Problem> problems;
};

// Where the server's file enable.cdn redirects its players, if there is one. Takes one request.
[[nodiscard]] Redirection RedirectionOf(const Server& server);

// What is wrong with the text of an enable.cdn.
[[nodiscard]] std::vector<Problem> RedirectionProblems(const std::string& text);

}  // namespace velmora::publish
