// Choice of the download server at start-up: one of the settings file's mirrors at random, and then
// wherever that server's file enable.cdn points to. Both are silent, and every failure leaves
// ServerHost, ServerPort and DataPath as they were. Main thread only,
// but for what says otherwise.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/url.h"

namespace velmora {

// Splits a URL that names a server; nothing for any other text, a URL without a host included.
[[nodiscard]] std::optional<platform::UrlParts> CrackServerUrl(const std::string& url);

inline constexpr int kMaxMirrors = 10;

struct BaseUrlEntry {
  std::string host;
  std::int32_t port = 0;  // the URL's, or its scheme's default
  std::string path;
};

// The mirrors BaseURL1 to BaseURL10 of the settings file; the first missing key ends the table, a
// value that is no URL doesn't get into it.
struct BaseUrlTable {
  std::array<BaseUrlEntry, kMaxMirrors> entries;
  std::size_t count = 0;
};

extern BaseUrlTable Mirrors;

// Fills the table from the settings file.
void ReadMirrors();

// Reads the table and takes host, port and path from one of its entries, if it has any.
void SelectMirror();

// Asks the host, on port 80, for enable.cdn below the path. Host and path of the URL that its body
// is, and port 80; nothing if there is no such body. Any thread; waits are bounded by ten seconds.
[[nodiscard]] std::optional<BaseUrlEntry> AskForRedirection(const std::string& host,
                                                            const std::string& dataPath);

// Asks the settings' server, and goes where it points to.
void ProbeCdn();

}  // namespace velmora
