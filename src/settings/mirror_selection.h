// Chooses the download server at start-up: one of the settings file's mirrors at random, and then
// wherever that server's file enable.cdn points to. Both are silent. If one fails, ServerHost,
// ServerPort and DataPath stay as they were. Main thread only, except where noted.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/url.h"

namespace velmora {

// Splits a URL that names a server. Empty for any other text, including a URL without a host.
[[nodiscard]] std::optional<platform::UrlParts> CrackServerUrl(const std::string& url);

inline constexpr int kMaxMirrors = 10;

struct BaseUrlEntry {
  std::string host;
  std::int32_t port = 0;  // the URL's, or its scheme's default
  std::string path;
};

// The mirrors BaseURL1 to BaseURL10 of the settings file. The first missing key ends the table. A
// value that isn't the URL of a server is skipped.
struct BaseUrlTable {
  std::array<BaseUrlEntry, kMaxMirrors> entries;
  std::size_t count = 0;
};

extern BaseUrlTable Mirrors;

// Fills the table from the settings file.
void ReadMirrors();

// Fills the table and takes host, port and path from one of its entries, if it has any.
void SelectMirror();

// Asks the host, on port 80, for enable.cdn below the path and returns its text; empty if there is
// none. Any thread. Each wait is bounded by ten seconds.
[[nodiscard]] std::optional<std::string> FetchRedirection(const std::string& host,
                                                          const std::string& dataPath);

// Where such a text redirects players: host and path of its URL, with port 80. Empty if the text is
// no URL.
[[nodiscard]] std::optional<BaseUrlEntry> RedirectionTarget(const std::string& text);

// Asks the server of the settings, and takes host, port and path from a redirection.
void ProbeCdn();

}  // namespace velmora
