// What the publisher's tool does with whole publications.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "publish/common/redirection.h"

namespace velmora::publish {
namespace {

TEST(Redirection, FlawsOfItsText) {
  const std::string host = "http://cdn.example.com";
  const std::string most = "/" + std::string(256, 'p');  // with "/f", 259 bytes
  for (const auto& [text, isWarning, parts] :
       std::vector<std::tuple<std::string, bool, std::vector<std::string>>>{
           {host + "/game", true, {}},
           {host + "/game-42", true, {}},
           {host, true, {}},
           {"HTTP://cdn.example.com:80" + most, true, {}},
           {"", false, {"empty"}},
           {"\xEF\xBB\xBF" + host, false, {"byte order mark"}},
           {"cdn.example.com/game", false, {"no URL"}},
           {"/game", false, {"no URL"}},
           {"http:///game", false, {"no URL"}},
           {"http://" + std::string(1000, 'h'), false, {"no URL, or one with a part"}},
           {host + "/game\n", false, {"a line end behind"}},
           {host + "/game\r\n", false, {"a line end behind"}},
           {host + "/game ", false, {"a space behind"}},
           {host + "/my game", false, {"a space inside"}},
           {host + "/\x83\x65", false, {"beyond ASCII"}},
           {host + most + "p", false, {"too long for any request"}},
           {"https://cdn.example.com/game", true, {"scheme is https"}},
           {"ftp://u:p@cdn.example.com/", true, {"scheme is ftp", "password", "slash"}},
           {host + ":8080/game?x", true, {"port is 8080", "query or fragment"}}}) {
    const std::vector<RedirectionFlaw> flaws = RedirectionFlaws(text);
    ASSERT_EQ(flaws.size(), parts.size()) << text;
    for (std::size_t i = 0; i < parts.size(); ++i) {
      EXPECT_NE(flaws[i].what.find(parts[i]), std::string::npos) << flaws[i].what;
      EXPECT_EQ(flaws[i].isWarning, isWarning) << text;
    }
  }
}

}  // namespace
}  // namespace velmora::publish
