#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "publish/verify/progress_line.h"
#include "publish/verify/verification.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

using test::Compressed;
using test::FileLine;
using test::LoopbackServer;
using test::Ok;
using test::Raw;
using test::Reply;
using test::ServedRequest;
using test::Sha1;
using test::Status;
using test::WriteFile;

using Texts = std::vector<std::string>;

// All findings as "path: kind: what", with "?" after the kind of a warning, sorted.
struct Outcome {
  Texts findings;
  VerifySummary summary;
};

Outcome Verify(const LoopbackServer& server, VerifyOptions options) {
  const Origin origin = ServerOrigin({"127.0.0.1", server.port(), "/d", "", ""}, "hashlist.dat");
  Outcome outcome;
  options.found = [&](const Finding& finding) {
    EXPECT_EQ(finding.origin, origin.name);
    outcome.findings.push_back(finding.path + ": " + KindName(finding.problem.kind) +
                               (finding.problem.isWarning ? "?: " : ": ") + finding.problem.what);
  };
  outcome.summary = VerifyOrigin(origin, options);
  std::sort(outcome.findings.begin(), outcome.findings.end());
  return outcome;
}

// 300 files of one byte.
std::string LongList() {
  std::string list;
  for (int i = 100; i < 400; ++i) list += FileLine(std::to_string(i), "x");
  return list;
}

class PublishVerify : public test::EngineTest {};

TEST_F(PublishVerify, FindsWhatPatchersWouldRefuse) {
  struct Case {
    std::string line;
    Reply reply;
    Texts findings;  // how they begin, from the kind on
  };
  const std::string good(1000, 'g');
  const std::string other(1000, 'o');
  const std::string hash = Sha1(good);
  const std::string page = "\xEF\xBB\xBF\r\n <!DOCTYPE Html><title>Sign in</title>";
  std::string noise;
  for (unsigned i = 0, n = 1; i < 300000; ++i)
    noise += static_cast<char>((n = n * 1664525 + 1013904223) >> 24);
  const std::string stream = Compressed(noise);  // longer than any buffer
  const std::string half = stream.substr(0, stream.size() - 1);
  std::string damaged = stream;
  damaged[stream.size() / 2] ^= 1;
  const std::string length = "Content-Length: 1000\r\n";
  const auto plain = [&](const std::string& path, const Reply& reply, const Texts& findings) {
    return Case{FileLine(path, good), reply, findings};
  };
  const auto compressed = [](const std::string& path, const std::string& served,
                             const std::string& content, const Texts& findings) {
    return Case{FileLine(path + ".compressed", served, content), Ok(served), findings};
  };
  const Case cases[] = {
      plain("good", Ok(good), {}),
      {FileLine("empty", ""), Ok(""), {}},
      {FileLine("page.html", page), Ok(page), {}},
      {"FILE : md5, " + test::Md5(good) + ", 1000, " + test::Md5(good) + ", 1000\n", Ok(good), {}},
      plain("gone", Status(404), {"missing: missing"}),
      plain("withdrawn", Status(410), {"missing: missing"}),
      plain("locked", Status(403, "", good), {"status: status 403"}),
      plain("cut", Raw(length, "ab"), {"truncated: truncated, 2 of 1000 bytes came"}),
      plain("reset", Raw(length, "", Reply::End::kReset),
            {"broken: broken transfer, 0 of 1000 bytes came"}),
      plain("longer",
            Raw(length + "Transfer-Encoding: chunked\r\n",
                "3e8\r\n" + good + "\r\n1\r\nx\r\n0\r\n\r\n"),
            {"longer: longer than the announced 1000 bytes"}),
      plain("endless", Raw("", good), {"no-length: no Content-Length"}),
      plain("huge", Raw("Content-Length: 4294968296\r\n", good),
            {"no-length: no usable Content-Length: 4294968296"}),
      plain("other-size", Ok("old"), {"stale: stale: its length is 3, the list says 1000"}),
      plain("old", Ok(other), {"stale: stale: its hash is " + Sha1(other)}),
      plain("page", Ok(page), {"page: a page instead of the file"}),
      plain("endless-page", Raw("", page), {"page: a page instead of the file"}),
      compressed("stream", stream, noise, {}),
      compressed("damaged", damaged, noise, {"damaged: damaged stream"}),
      compressed("half", half, noise, {"damaged: damaged stream, it has no end"}),
      compressed("bomb", Compressed(std::string(10000000, 'x')), good,
                 {"wrong-content: expands to more than 1000 bytes"}),
      compressed("small", Compressed("tiny"), good,
                 {"wrong-content: expands to 4 bytes, the list says 1000"}),
      compressed(
          "swap", Compressed(other), good,
          {"wrong-content: expands to another content than the list's, of hash " + Sha1(other)}),
      compressed("tail", stream + "tail", noise,
                 {"trailing?: 4 bytes stand behind the end of the stream"}),
      {"FILE : no-hash, , 1000, " + hash + ", 1000\n",
       Ok(good),
       {"record: the list's content hash \"\" is none", "record: the list's content size \"\" is",
        "record: the list's transfer hash \"\" is none", "record: the list's transfer size \"\""}},
      {"FILE : two, " + hash + ", 1000, " + Sha1(other) + ", 999\n",
       Ok(good),
       {"record: the list has two different hashes", "record: the list has two different sizes",
        "wrong-content: wrong content, its hash is " + hash}},
      plain(std::string(257, 'p'), Ok(good), {"path-too-long: "}),
  };
  std::string list;
  std::map<std::string, Reply> replies;
  Texts expected = {"hashlist.dat: list: patchers refuse the line, a field is too long: FILE",
                    "hashlist.dat: list: a line that is too long, or a zero byte, ends the"};
  for (const Case& test : cases) {
    list += test.line + test.line;  // what is listed twice is checked once
    const std::string path = test.line.substr(7, test.line.find(',') - 7);
    replies["/d/" + path] = test.reply;
    for (const std::string& finding : test.findings) expected.push_back(path + ": " + finding);
  }
  std::sort(expected.begin(), expected.end());
  list += FileLine(std::string(260, 'q'), good) + std::string(600, 'x') + "\n" +
          FileLine("unread", good);
  replies["/d/hashlist.dat"] = Ok(list);
  const LoopbackServer server([&](const ServedRequest& request) {
    return replies.contains(request.path) ? replies.at(request.path) : Status(500);
  });

  Progress progress;
  auto [findings, summary] = Verify(server, {.progress = &progress});
  for (std::size_t i = 0; i < std::min(findings.size(), expected.size()); ++i) {
    if (findings[i].starts_with(expected[i])) findings[i] = expected[i];
  }
  EXPECT_EQ(findings, expected);
  EXPECT_EQ(summary.errors, expected.size() - 1);
  EXPECT_EQ(summary.warnings, 1U);
  EXPECT_EQ(summary.files, std::size(cases));
  EXPECT_EQ(summary.checked, std::size(cases) - 1);       // no request for the path too long
  EXPECT_EQ(summary.requests, std::size(cases));          // with the list's
  EXPECT_GE(server.Requests().size(), std::size(cases));  // a lost connection is asked anew
  EXPECT_EQ(server.Requests().at(0).path, "/d/hashlist.dat");
  EXPECT_NE(server.Requests()[0].head.find("User-Agent: VelmoraUpdate\r\n"), std::string::npos);
  EXPECT_EQ(progress.files, std::size(cases));
  EXPECT_EQ(progress.bytes, summary.bytes);
}

TEST_F(PublishVerify, FailingServerIsGivenUp) {
  std::atomic<int> served = 0;
  // Every file is a reset, except for some good ones at first.
  const LoopbackServer server([&](const ServedRequest& request) {
    if (request.path == "/d/hashlist.dat") return Ok(LongList());
    return ++served % 15 == 0 && served < 100 ? Ok("x") : Reply{"", Reply::End::kReset};
  });
  const auto [findings, summary] = Verify(server, {.connections = 1});
  EXPECT_LT(summary.checked, 200U);
  EXPECT_GT(summary.checked, 2 * kMostFailuresInARow);
  EXPECT_EQ(findings.back(), "hashlist.dat: given-up: given up after 20 failures in a row, " +
                                 std::to_string(300 - summary.checked) + " files unchecked");
  EXPECT_TRUE(std::all_of(findings.begin(), findings.end() - 1,
                          [](const std::string& text) { return text.ends_with("no answer"); }));
}

TEST_F(PublishVerify, StopsWhenAsked) {
  std::atomic<bool> stop = false;
  const LoopbackServer server([&](const ServedRequest& request) {
    if (request.path == "/d/hashlist.dat") return Ok(LongList());
    stop = true;
    return Ok("wrong");
  });
  const auto [findings, summary] = Verify(server, {.connections = 4, .stop = &stop});
  EXPECT_TRUE(summary.isStopped);
  EXPECT_LE(summary.requests, 1U + 4);
  EXPECT_EQ(findings, Texts{});
}

TEST_F(PublishVerify, ProgressFitsALine) {
  Progress progress;
  EXPECT_EQ(ProgressText(progress, 0), "[----------------] 0/0 files, 0.0 kB");
  progress.files = 4;
  progress.filesTotal = 10;
  progress.bytes = 1000000;
  progress.bytesTotal = 4000000;
  EXPECT_EQ(ProgressText(progress, 2),
            "[####------------] 4/10 files, 1.0 MB, 500.0 kB/s, 0:06 left");
  progress.bytes = 5000000;  // more than the list says
  EXPECT_TRUE(ProgressText(progress, 1).ends_with(", 0:00 left"));
  progress.files = progress.filesTotal = 100000000;
  progress.bytesTotal = ~std::uint64_t{0};
  EXPECT_LE(ProgressText(progress, 1e6).size(), 79U);
}

// The command itself: what it prints and how it ends.
class VerifyCommand : public test::EngineTest {
 protected:
  static std::pair<int, std::string> Run(const std::string& arguments) {
    FILE* const pipe = popen((VELMORA_PUBLISH " verify " + arguments).c_str(), "r");
    std::string text;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
    return {WEXITSTATUS(pclose(pipe)), text};
  }
};

TEST_F(VerifyCommand, FolderIsCheckedLikeAServer) {
  const std::string stream = Compressed("content");
  WriteFile("p/l", FileLine("sub\\a", "aaa") + FileLine("z.compressed", stream, "content") +
                       FileLine("./VelmoraUpdate.dat", "s") + FileLine("gone", "gone") +
                       FileLine("old", "new") + FileLine("dir", "") +
                       FileLine("\x95\x5C.dat", "h"));
  WriteFile("p/sub/a", "aaa");
  WriteFile("p/z.compressed", stream);
  WriteFile("p/VelmoraUpdate.dat", "s");
  WriteFile("p/old", "old");
  WriteFile("p/dir/x", "");
  WriteFile("p/\x95/.dat", "h");
  WriteFile("good/hashlist.dat", FileLine("a", "a"));
  WriteFile("good/a", "a");
  WriteFile("page/hashlist.dat", "<HTML>\n" + FileLine("a", "a"));
  WriteFile("empty/hashlist.dat", "");
  // Status, and how the output begins and ends.
  const struct {
    const char* arguments;
    int status;
    std::string start, end;
  } cases[] = {
      {"p --list l --connections 1", 1,
       "error: p gone: missing\nerror: p old: stale: its hash is " + Sha1("old") +
           "\nerror: p dir: can't be read: it is no file\np: 7 of 7 files, 769 bytes, ",
       ", 8 requests; 3 errors, 0 warnings\n"},
      // No stream is a terminal, so there is no progress.
      {"good", 0, "good: 1 of 1 files, 101 bytes, ", " 2 requests; 0 errors, 0 warnings\n"},
      {"good --progress >/dev/null", 0, "\r\x1B[K[", "\r\x1B[K"},
      {"empty", 3, "warning: empty hashlist.dat: the list names no file\n", ", 1 warnings\n"},
      {"page", 1, "error: page hashlist.dat: a page instead of the list\npage: 0 of 0 files", ""},
      {"p", 1, "error: p hashlist.dat: missing\n", " 1 requests; 1 errors, 0 warnings\n"},
      {"--settings good/a", 1, "velmora-publish: good/a: leads to no server\n", ""},
  };
  for (const auto& [arguments, status, start, end] : cases) {
    const auto [exit, text] = Run(std::string("2>&1 ") + arguments);
    EXPECT_EQ(exit, status) << arguments;
    EXPECT_TRUE(text.starts_with(start) && text.ends_with(end)) << text;
  }
  for (const char* wrong : {"", "nowhere", "https://127.0.0.1/d", "good --settings good/a",
                            "good --connections 0", "--settings nowhere"}) {
    EXPECT_EQ(Run(std::string(wrong) + " 2>/dev/null").first, 2) << wrong;
  }
}

// Of these mirrors, one redirects to another one, which is listed twice but verified once, one is
// no URL, and one has no list. The credentials of the settings are sent when the server asks for
// them. A double-byte name is printed in UTF-8.
TEST_F(VerifyCommand, AllServersOfASettingsFile) {
  const std::map<std::string, std::string> files = {
      {"/files/l", FileLine("\x83\x65", "a") + FileLine("b", "b")}, {"/files/b", "b"}};
  const LoopbackServer redirector(
      LoopbackServer::Serving({{"/d/enable.cdn", "http://127.0.0.83:9/files"}}), 80, "127.0.0.82");
  const LoopbackServer target(
      [&](const ServedRequest& request) {
        const bool isKnown =
            request.head.find("Authorization: Basic dTpw\r\n") != std::string::npos;
        return isKnown ? LoopbackServer::Serving(files)(request)
                       : Status(401, "WWW-Authenticate: Basic realm=\"x\"\r\n");
      },
      80, "127.0.0.83");
  ASSERT_TRUE(redirector.IsListening() && target.IsListening());
  WriteFile(
      "players.dat",
      "[Setting]\nDataFile=l\nFTPUserName=u\nFTPPassword=p\nBaseURL1=http://127.0.0.82:8080/d\n"
      "BaseURL2=http://127.0.0.83/files\nBaseURL3=nonsense\nBaseURL4=http://127.0.0.83:80/files\n"
      "BaseURL5=http://127.0.0.83/e\n");
  const auto [status, text] = Run("--settings players.dat --json");
  EXPECT_EQ(status, 1);
  auto report = nlohmann::json::parse(text);
  for (nlohmann::json& server : report["servers"]) server.erase("seconds");
  EXPECT_EQ(report, nlohmann::json::parse(R"({
    "servers": [
      {"server": "http://127.0.0.82:8080/d", "redirectedTo": "http://127.0.0.83/files", "files": 2,
       "checked": 2, "bytes": 206, "requests": 3, "errors": 1, "warnings": 0},
      {"server": "http://127.0.0.83/files"},
      {"server": "http://127.0.0.83/e", "files": 0,
       "checked": 0, "bytes": 4, "requests": 1, "errors": 1, "warnings": 0}],
    "findings": [
      {"severity": "error", "server": "http://127.0.0.83/files", "path": "\u30c6",
       "kind": "missing", "what": "missing"},
      {"severity": "error", "server": "http://127.0.0.83/e", "path": "l",
       "kind": "missing", "what": "missing"}],
    "files": 2, "checked": 2, "bytes": 210, "errors": 2, "warnings": 0, "stopped": false})"));
  // Without mirrors, players use the one server.
  WriteFile("players.dat", "[Setting]\nServerAddress=127.0.0.82:8080\nData=/d\n");
  const std::string single = Run("--settings players.dat").second;
  EXPECT_TRUE(
      single.starts_with("http://127.0.0.82:8080/d: redirected to http://127.0.0.83/files\n"
                         "error: http://127.0.0.83/files hashlist.dat: status 401\n"))
      << single;
}

// A server that doesn't answer delays the stop that the first signal asks for; the second one ends
// the process.
TEST_F(VerifyCommand, SecondSignalEndsItAtAStalledServer) {
  const LoopbackServer server([](const ServedRequest&) { return Reply{"", Reply::End::kStall}; });
  const auto start = std::chrono::steady_clock::now();
  const auto [status, text] = Run("http://127.0.0.1:" + std::to_string(server.port()) +
                                  " 2>&1 & sleep 0.3; kill -INT $!; sleep 0.3; kill -0 $! && "
                                  "echo still there; kill -INT $!; wait $!");
  EXPECT_EQ(status, 128 + SIGINT);
  EXPECT_EQ(text, "still there\n");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
}

}  // namespace
}  // namespace velmora::publish
