// The file enable.cdn of a publication, which sends players to another server.
#pragma once

#include <string>
#include <vector>

namespace velmora::publish {

// Its name below the data path.
inline constexpr char kRedirectionName[] = "enable.cdn";

// What patchers don't do with the text as its publisher may think.
struct RedirectionFlaw {
  std::string what;  // in UTF-8, one line, with a way out at its end
  // Players are sent somewhere, but not exactly where the URL says. Otherwise they are sent
  // nowhere, or where they find nothing.
  bool isWarning = false;
};

// All flaws of the file's whole text, which should be a URL of the form http://host/path and
// nothing else: patchers take host and path of it, and always port 80. Pure; safe from any thread.
[[nodiscard]] std::vector<RedirectionFlaw> RedirectionFlaws(const std::string& text);

}  // namespace velmora::publish
