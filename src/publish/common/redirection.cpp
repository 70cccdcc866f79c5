#include "publish/common/redirection.h"

#include <algorithm>
#include <string_view>

#include "base/ascii.h"
#include "engine/request_path.h"
#include "publish/common/shown_text.h"
#include "settings/mirror_selection.h"
#include "settings/probe_client.h"

namespace velmora::publish {
namespace {

using Flaws = std::vector<RedirectionFlaw>;

bool IsNoPartOfAUrl(char c) { return c == ' ' || !IsAscii(c) || IsControl(c); }

// What is behind the URL that the text begins with, if the text is longer than that.
std::string BytesThatDontBelong(std::string_view text) {
  const auto first = std::find_if(text.begin(), text.end(), IsNoPartOfAUrl);
  if (first == text.end()) return {};
  const bool isAtEnd = std::all_of(first, text.end(), IsNoPartOfAUrl);
  const std::string place = isAtEnd ? "behind the URL" : "inside the URL";
  if (*first == ' ') return "a space " + place;
  if (*first == '\r' || *first == '\n') return "a line end " + place;
  return "a control character, or a byte beyond ASCII, " + place;
}

// No file has a shorter path.
bool HasRoomForFiles(const std::string& dataPath) {
  FileRecord shortest;
  shortest.path = "f";
  return RequestPath(dataPath, shortest).has_value();
}

void AddFlawsOf(const platform::UrlParts& parts, Flaws& flaws) {
  const auto warn = [&flaws](const std::string& what) { flaws.push_back({what, true}); };
  const std::string port = std::to_string(kProbePort);
  const bool isHttp = EqualWithoutCase(parts.scheme, "http");
  if (!isHttp) {
    warn("the scheme is " + ShownText(parts.scheme) + ", but patchers use plain HTTP on port " +
         port + "; offer the files that way, and write http://");
  }
  if (isHttp && parts.port != kProbePort) {
    warn("the port is " + std::to_string(parts.port) + ", but patchers use port " + port +
         "; offer the files there, and leave the port out");
  }
  if (!parts.user.empty() || !parts.password.empty()) {
    warn("the URL has a user or a password, which patchers ignore; leave it out");
  }
  if (!parts.extra.empty()) {
    warn("the URL has a query or fragment, which patchers ignore: " + ShownText(parts.extra) +
         "; leave it out, or put it into the path");
  }
  if (parts.path.ends_with('/')) {
    warn(
        "the path ends in a slash, and patchers request two in a row, behind which many servers "
        "find nothing; leave it out");
  }
  if (!HasRoomForFiles(parts.path)) {
    flaws.push_back({"the path is too long for any request: with a file's own path, it can have " +
                     std::to_string(kRequestPathBuffer - 1) + " bytes; shorten it"});
  }
}

}  // namespace

Flaws RedirectionFlaws(const std::string& text) {
  constexpr char kForm[] = "write a URL of the form http://host/path, and nothing else";
  if (text.empty()) return {{std::string("it is empty and redirects nobody; ") + kForm}};
  const auto parts = CrackServerUrl(text);
  if (!parts) {
    const std::string_view withoutMark = WithoutByteOrderMark(text);
    if (withoutMark.size() < text.size()) {
      return {{"it begins with a byte order mark, and so it is no URL; save it without one"}};
    }
    return {{"it is no URL, or one with a part that is too long, and redirects nobody: " +
             ShownText(text.substr(0, 100)) + "; " + kForm}};
  }
  Flaws flaws;
  const std::string strange = BytesThatDontBelong(text);
  if (!strange.empty()) {
    flaws.push_back({strange + " becomes part of what patchers request; " + kForm});
  }
  AddFlawsOf(*parts, flaws);
  return flaws;
}

}  // namespace velmora::publish
