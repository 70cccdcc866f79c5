#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "publish/common/publish_error.h"
#include "publish/verify/player_servers.h"
#include "publish/verify/progress_line.h"
#include "publish/verify/verification.h"
#include "settings/patcher_settings.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

using test::Compressed;
using test::LoopbackServer;
using test::Ok;
using test::Raw;
using test::Reply;
using test::ServedRequest;
using test::Sha1;
using test::Status;
using test::WriteFile;

using Texts = std::vector<std::string>;

// All findings of a site as "path: what", sorted.
struct Outcome {
  Texts findings;
  SiteSummary summary;
};

Outcome Verify(const Site& site, VerifyOptions options = {}) {
  Outcome outcome;
  options.found = [&](const Finding& finding) {
    EXPECT_EQ(finding.site, site.name);
    outcome.findings.push_back(finding.path + ": " + KindName(finding.problem.kind) +
                               (finding.problem.isWarning ? "?: " : ": ") + finding.problem.what);
  };
  outcome.summary = VerifySite(site, options);
  std::sort(outcome.findings.begin(), outcome.findings.end());
  return outcome;
}

Site Local(const LoopbackServer& server, const std::string& path = "/d") {
  return ServerSite({"127.0.0.1", server.port(), path, "", ""}, "hashlist.dat");
}

std::string Line(const std::string& path, const std::string& transfer, const std::string& content) {
  return "FILE : " + path + ", " + Sha1(transfer) + ", " + std::to_string(transfer.size()) + ", " +
         Sha1(content) + ", " + std::to_string(content.size()) + "\n";
}
std::string Line(const std::string& path, const std::string& content) {
  return Line(path, content, content);
}

class PublishVerify : public test::EngineTest {};

TEST_F(PublishVerify, NamesWhatPatchersWouldRefuse) {
  std::string noise;
  for (unsigned i = 0, n = 1; i < 300000; ++i)
    noise += static_cast<char>((n = n * 1664525 + 1013904223) >> 24);
  const std::string stream = Compressed(noise);  // many pieces
  std::string damaged = stream;
  damaged[stream.size() / 2] ^= 1;
  const std::string bomb = Compressed(std::string(10000000, 'x'));
  const std::string page = "\xEF\xBB\xBF\r\n <!DOCTYPE Html><title>Sign in</title>";
  const std::string good(1000, 'g');
  const std::string other(1000, 'o');
  const auto length = [](std::size_t size) {
    return "Content-Length: " + std::to_string(size) + "\r\n";
  };
  const auto chunked = [](const std::string& size, const std::string& body) {
    return "3e8\r\n" + body + "\r\n" + size + "\r\n";
  };
  const std::string hash = Sha1(good);
  struct Case {
    std::string line;
    Reply reply;
    Texts findings;  // kind and text
  };
  const std::vector<Case> cases = {
      {Line("plain", good), Ok(good), {}},
      {Line("empty", ""), Ok(""), {}},
      {"FILE : md5, " + test::Md5(good) + ", 1000, " + test::Md5(good) + ", 1000\n", Ok(good), {}},
      {Line("z.compressed", stream, noise), Ok(stream), {}},
      {Line("void.compressed", Compressed(""), ""), Ok(Compressed("")), {}},
      {Line("gone", good), Status(404), {"missing: missing"}},
      {Line("withdrawn", good), Status(410), {"missing: missing"}},
      {Line("locked", good), Status(403, "", good), {"status: status 403"}},
      {Line("cut", good),
       Raw(length(1000), good.substr(0, 700)),
       {"truncated: truncated, 700 of 1000 bytes came"}},
      {Line("reset", good), Raw(length(1000), "", Reply::End::kReset), {}},  // see below
      {Line("longer", good),
       Raw(length(1000) + "Transfer-Encoding: chunked\r\n", chunked("1\r\nx\r\n0\r\n", good)),
       {"longer: longer than the announced 1000 bytes"}},
      {Line("endless", good), Raw("", good), {"no-length: no Content-Length"}},
      {Line("less", good),
       Raw("Content-Length: -3\r\n", good),
       {"no-length: no usable Content-Length: -3"}},
      {Line("huge", good),
       Raw("Content-Length: 4294968296\r\n", good),
       {"no-length: no usable Content-Length: 4294968296"}},
      {Line("old size", good), Ok("old"), {"stale: stale: its length is 3, the list says 1000"}},
      {Line("old", good), Ok(other), {"stale: stale: its hash is " + Sha1(other)}},
      {Line("page", good), Ok(page), {"page: a page instead of the file"}},
      {Line("stream page", good), Raw("", page), {"page: a page instead of the file"}},
      {Line("page.html", page), Ok(page), {}},
      {Line("damaged.compressed", damaged, noise), Ok(damaged), {"damaged: damaged stream"}},
      {Line("half.compressed", stream.substr(0, stream.size() - 1), noise),
       Ok(stream.substr(0, stream.size() - 1)),
       {"damaged: damaged stream, it has no end"}},
      {Line("raw.compressed", noise), Ok(noise), {"damaged: damaged stream"}},
      {Line("bomb.compressed", bomb, good),
       Ok(bomb),
       {"wrong-content: expands to more than 1000 bytes"}},
      {Line("small.compressed", Compressed("tiny"), good),
       Ok(Compressed("tiny")),
       {"wrong-content: expands to 4 bytes, the list says 1000"}},
      {Line("swap.compressed", Compressed(other), good),
       Ok(Compressed(other)),
       {"wrong-content: expands to another content than the list's, of hash " + Sha1(other)}},
      {Line("tail.compressed", stream + "tail", noise),
       Ok(stream + "tail"),
       {"trailing?: 4 bytes stand behind the end of the stream"}},
      {"FILE : no hash, , 1000, " + hash + ", 1000\n",
       Ok(good),
       {"record: the list's content hash \"\" is none", "record: the list's content size \"\" is",
        "record: the list's transfer hash \"\" is none", "record: the list's transfer size \"\""}},
      {"FILE : lower, " + std::string(40, 'a') + ", 1000, " + hash + ", 1e3\n",
       Ok(good),
       {"record: the list's content size \"1e3\" is none",
        "record: the list's transfer hash \"aaaaa"}},
      {"FILE : two, " + hash + ", 1000, " + Sha1(other) + ", 999\n",
       Ok(good),
       {"record: the list has two different hashes", "record: the list has two different sizes",
        "wrong-content: wrong content, its hash is " + hash}},
      {Line(std::string(257, 'p'), good), Ok(good), {"path-too-long: "}},
  };
  std::string list;
  std::map<std::string, Reply> replies;
  Texts expected;
  for (const Case& test : cases) {
    // Said twice, checked once.
    list += test.line + test.line;
    const std::string path = test.line.substr(7, test.line.find(',') - 7);
    replies["/d/" + path] = test.reply;
    for (const std::string& finding : test.findings) expected.push_back(path + ": " + finding);
  }
  expected.emplace_back("reset: broken: broken transfer, 0 of 1000 bytes came");
  expected.emplace_back("hashlist.dat: list: patchers refuse the line, a field is too long: FILE");
  expected.emplace_back("hashlist.dat: list: a line that is too long, or a zero byte, ends the");
  list += Line(std::string(260, 'q'), good) + std::string(600, 'x') + "\n" + Line("unread", good);
  replies["/d/hashlist.dat"] = Ok(list);
  const LoopbackServer server([&](const ServedRequest& request) {
    std::string path = request.path;
    if (const auto blank = path.find("%20"); blank != std::string::npos)
      path.replace(blank, 3, " ");
    return replies.contains(path) ? replies.at(path) : Status(500);
  });

  Progress progress;
  VerifyOptions options;
  options.progress = &progress;
  const Outcome outcome = Verify(Local(server), options);
  std::sort(expected.begin(), expected.end());
  ASSERT_EQ(outcome.findings.size(), expected.size()) << testing::PrintToString(outcome.findings);
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_TRUE(outcome.findings[i].starts_with(expected[i]))
        << outcome.findings[i] << "\nfor " << expected[i];
  }
  EXPECT_EQ(outcome.summary.errors, expected.size() - 1);
  EXPECT_EQ(outcome.summary.warnings, 1U);
  EXPECT_EQ(outcome.summary.files, cases.size());
  EXPECT_EQ(outcome.summary.checked, cases.size() - 1);  // no request for the path too long
  EXPECT_EQ(outcome.summary.requests, cases.size());     // with the list's
  EXPECT_GE(server.Requests().size(), cases.size());     // a lost connection is asked anew
  EXPECT_EQ(progress.files, cases.size());
  EXPECT_EQ(progress.bytes, outcome.summary.bytes);
}

TEST_F(PublishVerify, ListThatPlayersDoNotGet) {
  const struct {
    Reply reply;
    const char* finding;
  } cases[] = {
      {Status(404), "hashlist.dat: missing: missing"},
      {Ok("<HTML>Welcome"), "hashlist.dat: page: a page instead of the list"},
      {Raw("", Line("a", "a")), "hashlist.dat: no-length: no Content-Length"},
      {Raw("Content-Length: 500\r\n", Line("a", "a")),
       "hashlist.dat: truncated: truncated, 99 of 500 bytes came"},
      {Ok(""), "hashlist.dat: list?: the list names no file"},
      {Ok(std::string("DEL : a, \n\0FILE", 15)),
       "hashlist.dat: list: a line that is too long, or a zero byte, ends the list before its end"},
  };
  for (const auto& test : cases) {
    const LoopbackServer server([&](const ServedRequest&) { return test.reply; });
    const Outcome outcome = Verify(Local(server));
    ASSERT_FALSE(outcome.findings.empty()) << test.finding;
    EXPECT_EQ(outcome.findings[0], test.finding);
    EXPECT_EQ(server.Requests().size(), 1U);
    EXPECT_EQ(server.Requests()[0].path, "/d/hashlist.dat");
    EXPECT_NE(server.Requests()[0].head.find("User-Agent: VelmoraUpdate\r\n"), std::string::npos);
  }
}

TEST_F(PublishVerify, FolderIsCheckedLikeAServer) {
  const std::string stream = Compressed("content");
  WriteFile("p/hashlist.dat", Line("sub\\a", "aaa") + Line("z.compressed", stream, "content") +
                                  Line("./VelmoraUpdate.dat", "s") + Line("gone", "g") +
                                  Line("old", "new") + Line("dir", "") + Line("\x95\x5C.dat", "h"));
  WriteFile("p/sub/a", "aaa");
  WriteFile("p/z.compressed", stream);
  WriteFile("p/VelmoraUpdate.dat", "s");
  WriteFile("p/old", "old");
  WriteFile("p/dir/x", "");
  WriteFile("p/\x95/.dat", "h");
  const Outcome outcome = Verify(FolderSite("p", "hashlist.dat"));
  EXPECT_EQ(outcome.findings,
            (Texts{"dir: status: can't be read: it is no file", "gone: missing: missing",
                   "old: stale: stale: its hash is " + Sha1("old")}));
  EXPECT_EQ(outcome.summary.checked, 7U);
  EXPECT_EQ(Verify(FolderSite("q", "hashlist.dat")).findings,
            Texts{"hashlist.dat: missing: missing"});
}

TEST_F(PublishVerify, ServersOfASettingsFile) {
  const auto names = [](const std::string& content) {
    WriteFile("players.dat", "[Setting]\r\n" + content);
    Settings = PatcherSettings();
    const PlayerServers players = ReadPlayerServers("players.dat");
    Texts result = {players.listName};
    for (const Server& server : players.servers) result.push_back(ServerName(server));
    return result;
  };
  const std::string one = "ServerAddress=one.invalid:8080\r\nData=/d\r\n";
  EXPECT_EQ(names(one), (Texts{"hashlist.dat", "http://one.invalid:8080/d"}));
  EXPECT_EQ(names(one + "DataFile=l\r\nBaseURL1=http://m1.invalid/a\r\nBaseURL2=nonsense\r\n"
                        "BaseURL3=http://m3.invalid:81/b/\r\nBaseURL4=http://m1.invalid:80/a\r\n"),
            (Texts{"l", "http://m1.invalid/a", "http://m3.invalid:81/b/"}));
  EXPECT_THROW(names("Data=/d\r\n"), PublishError);

  // The file's credentials are given when the server asks for them.
  const LoopbackServer server([](const ServedRequest& request) {
    const bool isKnown = request.head.find("Authorization: Basic dTpw\r\n") != std::string::npos;
    return isKnown ? LoopbackServer::Serving({{"/d/hashlist.dat", Line("a", "a")}, {"/d/a", "a"}})(
                         request)
                   : Status(401, "WWW-Authenticate: Basic realm=\"x\"\r\n");
  });
  names("ServerAddress=127.0.0.1:" + std::to_string(server.port()) +
        "\r\nData=/d\r\nFTPUserName=u\r\nFTPPassword=p\r\n");
  const PlayerServers players = ReadPlayerServers("players.dat");
  EXPECT_EQ(Verify(ServerSite(players.servers.at(0), players.listName)).findings, Texts{});
}

TEST_F(PublishVerify, FailingServerIsGivenUp) {
  std::string list;
  for (int i = 100; i < 400; ++i) list += Line(std::to_string(i), "x");
  std::atomic<int> served = 0;
  // Every answer but the list's is a reset, with a good one in between at first.
  const LoopbackServer server([&](const ServedRequest& request) {
    if (request.path == "/d/hashlist.dat") return Ok(list);
    return ++served % 15 == 0 && served < 100 ? Ok("x") : Reply{"", Reply::End::kReset};
  });
  VerifyOptions options;
  options.connections = 1;
  const Outcome outcome = Verify(Local(server), options);
  EXPECT_LT(outcome.summary.checked, 200U);
  EXPECT_GT(outcome.summary.checked, 2 * kMostFailuresInARow);
  const std::string& last = outcome.findings.back();
  EXPECT_EQ(last, "hashlist.dat: given-up: given up after 20 failures in a row, " +
                      std::to_string(300 - outcome.summary.checked) + " files unchecked");
  EXPECT_EQ(std::count_if(outcome.findings.begin(), outcome.findings.end(),
                          [](const std::string& text) { return text.ends_with("no answer"); }),
            static_cast<long>(outcome.findings.size()) - 1);
}

TEST_F(PublishVerify, StopsWhenAsked) {
  std::string list;
  for (int i = 100; i < 400; ++i) list += Line(std::to_string(i), "x");
  std::atomic<bool> stop = false;
  const LoopbackServer server([&](const ServedRequest& request) {
    if (request.path == "/d/hashlist.dat") return Ok(list);
    stop = true;
    return Ok("wrong");
  });
  VerifyOptions options;
  options.stop = &stop;
  const Outcome outcome = Verify(Local(server), options);
  EXPECT_TRUE(outcome.summary.isStopped);
  EXPECT_LE(outcome.summary.requests, 1 + options.connections);
  EXPECT_EQ(outcome.findings, Texts{});
}

TEST_F(PublishVerify, ProgressFitsALine) {
  Progress progress;
  EXPECT_EQ(ProgressText(progress, 0), "[----------------] 0/0 files, 0.0 kB");
  progress.filesTotal = 10;
  progress.files = 4;
  progress.bytesTotal = 4000000;
  progress.bytes = 1000000;
  EXPECT_EQ(ProgressText(progress, 2),
            "[####------------] 4/10 files, 1.0 MB, 500.0 kB/s, 0:06 left");
  progress.files = progress.filesTotal = 100000000;
  progress.bytesTotal = ~std::uint64_t{0};
  EXPECT_LE(ProgressText(progress, 1e6).size(), 79U);
  progress.bytes = 5000000;  // more than the list says
  progress.bytesTotal = 4000000;
  EXPECT_TRUE(ProgressText(progress, 1).ends_with(", 0:00 left"));
}

// The command itself: what it prints and how it ends.
class VerifyCommand : public test::EngineTest {
 protected:
  struct Result {
    std::string text;
    int status = -1;
  };
  static Result Run(const std::string& arguments) {
    Result result;
    FILE* const pipe = popen((VELMORA_PUBLISH " verify " + arguments).c_str(), "r");
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
      result.text += static_cast<char>(c);
    }
    result.status = WEXITSTATUS(pclose(pipe));
    return result;
  }
};

TEST_F(VerifyCommand, TellsAndEnds) {
  WriteFile("good/hashlist.dat", Line("a", "a"));
  WriteFile("good/a", "a");
  WriteFile("warn/l", Line("a.compressed", Compressed("a") + "!", "a"));
  WriteFile("warn/a.compressed", Compressed("a") + "!");
  // No error stream is a terminal here, so nothing stands on it.
  const Result good = Run("good 2>&1");
  EXPECT_EQ(good.status, 0);
  EXPECT_TRUE(good.text.starts_with("good: 1 of 1 files, ")) << good.text;
  EXPECT_TRUE(good.text.ends_with(" 2 requests; 0 errors, 0 warnings\n")) << good.text;
  const Result drawn = Run("good --progress 2>&1 >/dev/null");
  EXPECT_TRUE(drawn.text.starts_with("\r\x1B[K[")) << drawn.text;
  EXPECT_TRUE(drawn.text.ends_with("\r\x1B[K")) << drawn.text;

  const Result warned = Run("warn --list l");
  EXPECT_EQ(warned.status, 3);
  EXPECT_TRUE(warned.text.starts_with("warning: warn a.compressed: 1 bytes stand behind"));
  for (const char* wrong : {"", "nowhere", "https://127.0.0.1/d", "good --settings good/a",
                            "good --connections 0", "--settings nowhere"}) {
    EXPECT_EQ(Run(std::string(wrong) + " 2>/dev/null").status, 2) << wrong;
  }
  EXPECT_EQ(Run("--settings good/a 2>/dev/null").status, 1);

  // Two mirrors, one of which has nothing. A name of the double-byte kind is told in UTF-8.
  const LoopbackServer server(LoopbackServer::Serving(
      {{"/d/list", Line("\x83\x65", "a") + Line("b", "b")}, {"/d/b", "b"}, {"/e", "nothing"}}));
  const std::string root = "http://127.0.0.1:" + std::to_string(server.port());
  WriteFile("players.dat",
            "[Setting]\nDataFile=list\nBaseURL1=" + root + "/d\nBaseURL2=" + root + "/e\n");
  const Result mirrors = Run("--settings players.dat --json");
  EXPECT_EQ(mirrors.status, 1);
  const auto told = nlohmann::json::parse(mirrors.text);
  EXPECT_EQ(told["files"], 2);
  EXPECT_EQ(told["errors"], 2);
  EXPECT_EQ(told["stopped"], false);
  EXPECT_EQ(told["servers"][0]["server"], root + "/d");
  EXPECT_EQ(told["servers"][1]["errors"], 1);
  EXPECT_EQ(told["findings"][0]["path"], "\xE3\x83\x86");
  EXPECT_EQ(told["findings"][1], (nlohmann::json{{"severity", "error"},
                                                 {"server", root + "/e"},
                                                 {"path", "list"},
                                                 {"kind", "missing"},
                                                 {"what", "missing"}}));
}

TEST_F(VerifyCommand, RedirectionIsFollowed) {
  const LoopbackServer redirector(
      LoopbackServer::Serving({{"/d/enable.cdn", "http://127.0.0.83:9/files"}}), 80, "127.0.0.82");
  const LoopbackServer target(
      LoopbackServer::Serving({{"/files/hashlist.dat", Line("a", "a")}, {"/files/a", "a"}}), 80,
      "127.0.0.83");
  if (!redirector.IsListening() || !target.IsListening()) {
    GTEST_SKIP() << "port 80 can't be had";
  }
  const Result result = Run("http://127.0.0.82:8080/d");
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(
      result.text.starts_with("http://127.0.0.82:8080/d: redirected to http://127.0.0.83/files\n"))
      << result.text;
  // Two mirrors that lead to one place: it is verified once.
  WriteFile("players.dat",
            "[Setting]\nBaseURL1=http://127.0.0.82/d\nBaseURL2=http://127.0.0.83/files\n");
  const auto told = nlohmann::json::parse(Run("--settings players.dat --json").text);
  EXPECT_EQ(told["files"], 1);
  EXPECT_EQ(told["servers"][0]["redirectedTo"], "http://127.0.0.83/files");
  EXPECT_EQ(told["servers"][1], (nlohmann::json{{"server", "http://127.0.0.83/files"}}));
}

TEST_F(VerifyCommand, StopsAtAStalledServer) {
  const LoopbackServer server([](const ServedRequest&) { return Reply{"", Reply::End::kStall}; });
  const auto start = std::chrono::steady_clock::now();
  const Result result = Run("http://127.0.0.1:" + std::to_string(server.port()) +
                            " 2>&1 & "
                            "sleep 0.3; kill -INT $!; wait $!");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.text, "velmora-publish: stopped before the end\n");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
}

}  // namespace
}  // namespace velmora::publish
