#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "publish/common/progress_line.h"
#include "publish/verify/verification.h"
#include "support/publish_tool.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

using namespace test;
using Texts = std::vector<std::string>;

// All findings as "path: kind: what", with "?" after the kind of a warning, sorted.
std::pair<Texts, VerifySummary> Verify(const LoopbackServer& server, VerifyOptions options) {
  const Origin origin = ServerOrigin({"127.0.0.1", server.port(), "/d", "", ""}, "hashlist.dat");
  Texts findings;
  options.found = [&](const Finding& finding) {
    EXPECT_EQ(finding.origin, origin.name);
    findings.push_back(finding.path + ": " + KindName(finding.problem.kind) +
                       (finding.problem.isWarning ? "?: " : ": ") + finding.problem.what);
  };
  const VerifySummary summary = VerifyOrigin(origin, options);
  std::sort(findings.begin(), findings.end());
  return {findings, summary};
}

// Serves a list of 300 files of one byte; `file` answers for each of them.
LoopbackServer::Answer ManyFiles(const std::function<Reply()>& file) {
  std::string list;
  for (int i = 100; i < 400; ++i) list += FileLine(std::to_string(i), "x");
  return [list, file](const auto& r) { return r.path == "/d/hashlist.dat" ? Ok(list) : file(); };
}

class PublishVerify : public EngineTest {};

TEST_F(PublishVerify, FindsWhatPatchersWouldRefuse) {
  const std::string good(1000, 'g');
  const std::string other(1000, 'o');
  const std::string md5 = Md5(good);
  const std::string page = "\xEF\xBB\xBF\r\n <!DOCTYPE Html><title>Sign in</title>";
  const std::string length = "Content-Length: 1000\r\n";
  std::string noise;
  for (unsigned i = 0, n = 1; i < 300000; ++i)
    noise += static_cast<char>((n = n * 1664525 + 1013904223) >> 24);
  const std::string stream = Compressed(noise);  // longer than any buffer
  const std::string half = stream.substr(0, stream.size() - 1);
  std::string damaged = stream;
  damaged[stream.size() / 2] ^= 1;

  std::string list;
  std::map<std::string, Reply> replies;
  Texts expected;
  const auto add = [&](const std::string& path, const std::string& line, const Reply& reply,
                       const Texts& findings) {
    list += line + line;  // what is listed twice is checked once
    replies["/d/" + path] = reply;
    for (const std::string& finding : findings) expected.push_back(path + ": " + finding);
  };
  const auto plain = [&](const std::string& path, const Reply& reply, const Texts& findings) {
    add(path, FileLine(path, good), reply, findings);
  };
  const auto compressed = [&](const std::string& path, const std::string& served,
                              const std::string& content, const Texts& findings) {
    add(path, FileLine(path, served, content), Ok(served), findings);
  };
  plain("good", Ok(good), {});
  add("page.html", FileLine("page.html", page), Ok(page), {});
  add("md5", "FILE : md5, " + md5 + ", 1000, " + md5 + ", 1000\n", Ok(good), {});
  plain("gone", Status(404), {"missing: missing"});
  plain("locked", Status(403, "", good), {"status: status 403"});
  plain("cut", Raw(length, "ab"), {"truncated: truncated, 2 of 1000 bytes came"});
  plain("reset", Raw(length, "", Reply::End::kReset),
        {"broken: broken transfer, 0 of 1000 bytes came"});
  plain(
      "longer",
      Raw(length + "Transfer-Encoding: chunked\r\n", "3e8\r\n" + good + "\r\n1\r\nx\r\n0\r\n\r\n"),
      {"longer: longer than the announced 1000 bytes"});
  plain("endless", Raw("", good), {"no-length: no Content-Length"});
  plain("other-size", Ok("old"), {"stale: stale: its length is 3, the list says 1000"});
  plain("old", Ok(other), {"stale: stale: its hash is " + Sha1(other)});
  plain("page", Ok(page), {"page: a page instead of the file"});
  plain(std::string(257, 'p'), Ok(good), {"path-too-long: "});
  const std::string gzip = "Content-Encoding: gzip\r\n";
  plain("encoded", Raw(gzip, good),
        {"encoded: the server compresses: Content-Encoding: gzip; turn that off"});
  plain("recoded", Raw(gzip + length, other), {"encoded: the server compresses: Content-Enc"});
  plain("mislabelled", Raw(gzip + length, good),
        {"encoded?: the file arrives as it is, but with Content-Encoding: gzip, which"});
  plain("identity", Raw("Content-Encoding: identity\r\n", good), {"no-length: no Content-Length"});
  plain("private", Status(401), {"status: status 401: wants a user and a password; give them"});
  const std::string here = "redirected to http://127.0.0.1:";
  plain("sent-away", Status(301, "Location: /d/locked\r\n"),
        {"status: status 403; " + here, "moved?: " + here});
  plain("sent-back", Status(302, "Location: good\r\n"), {});
  compressed("stream.compressed", stream, noise, {});
  compressed("damaged.compressed", damaged, noise, {"damaged: damaged stream"});
  compressed("half.compressed", half, noise, {"damaged: damaged stream, it has no end"});
  compressed("bomb.compressed", Compressed(std::string(10000000, 'x')), good,
             {"wrong-content: expands to more than 1000 bytes"});
  compressed("swap.compressed", Compressed(other), good,
             {"wrong-content: expands to another content than the list's, of hash " + Sha1(other)});
  compressed("tail.compressed", stream + "tail", noise,
             {"trailing?: 4 bytes after the end of the stream"});
  add("no-hash", "FILE : no-hash, , 1000, " + md5 + ", 1000\n", Ok(good),
      {"record: the list's content hash \"\" is none", "record: the list's content size \"\" is",
       "record: the list's transfer hash \"\" is none", "record: the list's transfer size \"\""});
  add("two", "FILE : two, " + Sha1(good) + ", 1000, " + Sha1(other) + ", 999\n", Ok(good),
      {"record: the list has two different hashes", "record: the list has two different sizes",
       "wrong-content: wrong content, its hash is " + Sha1(good)});
  const std::size_t files = replies.size();
  list += FileLine(std::string(260, 'q'), good) + std::string(600, 'x') + "\n" +
          FileLine("unread", good);
  add("hashlist.dat", "", Ok(list),
      {"list: patchers refuse the line, a field is too long: FILE",
       "list: a line that is too long, or a zero byte, ends the list before its end"});
  const LoopbackServer server([&](const ServedRequest& request) {
    return replies.contains(request.path) ? replies.at(request.path) : Status(500);
  });

  Progress progress;
  auto [findings, summary] = Verify(server, {.progress = &progress});
  std::sort(expected.begin(), expected.end());
  for (std::size_t i = 0; i < std::min(findings.size(), expected.size()); ++i) {
    if (findings[i].starts_with(expected[i])) findings[i] = expected[i];
  }
  EXPECT_EQ(findings, expected);
  EXPECT_EQ(summary.checked, files - 1);       // no request for the path too long
  EXPECT_EQ(summary.requests, files);          // with the list's
  EXPECT_GE(server.Requests().size(), files);  // a lost connection is replaced
  EXPECT_NE(server.Requests().at(0).head.find("User-Agent: VelmoraUpdate\r\n"), std::string::npos);
  EXPECT_EQ(progress.files, files);
  EXPECT_EQ(progress.bytes, summary.bytes);
}

// Whose certificates the players' systems trust isn't asked: they don't get that far.
TEST_F(PublishVerify, RedirectToHttpsIsAnError) {
  for (const std::string scheme : {"http", "https"}) {
    Origin origin;
    origin.name = "s";
    origin.listName = "l";
    origin.listPath = "/l";
    origin.pathOf = [](const FileRecord& record) { return record.path; };
    origin.open = [&scheme]() -> Fetch {
      return [&scheme](const std::string& path, Sink& sink) {
        const std::string body = path == "/l" ? FileLine("a", "a") : "a";
        ResponseHead head;
        head.status = 200;
        head.length = std::to_string(body.size());
        if (path == "a") head.redirectedTo = scheme + "://t/a";
        EXPECT_TRUE(sink.TakeHead(head));
        sink.TakeBytes(reinterpret_cast<const std::uint8_t*>(body.data()), body.size());
        return DeliveryEnd::kEnded;
      };
    };
    const VerifySummary summary = VerifyOrigin(origin, {.connections = 1});
    EXPECT_EQ(std::pair(summary.errors, summary.warnings),
              scheme == "https" ? std::pair(1UL, 0UL) : std::pair(0UL, 1UL));
  }
}

TEST_F(PublishVerify, StalledTransferIsCalledSo) {
  const FileRecord record = {"a", Sha1("x"), "1", Sha1("x"), "1", false};
  const auto problems = CheckPayload(record, [](Sink& sink) {
    ResponseHead head;
    head.status = 200;
    head.length = "1";
    EXPECT_TRUE(sink.TakeHead(head));
    return DeliveryEnd::kStalled;
  });
  ASSERT_EQ(problems.size(), 1U);
  EXPECT_EQ(problems[0].what, "broken transfer, 0 of 1 bytes came, then nothing for ten seconds");
}

TEST_F(PublishVerify, FailingServerIsGivenUp) {
  int served = 0;
  // Every file is a reset, except for some good ones at first.
  const LoopbackServer server(ManyFiles([&] {
    return ++served % 15 == 0 && served < 100 ? Ok("x") : Reply{"", Reply::End::kReset};
  }));
  const auto [findings, summary] = Verify(server, {.connections = 1});
  EXPECT_LT(summary.checked, 200U);
  EXPECT_GT(summary.checked, 2 * kMostFailuresInARow);
  EXPECT_EQ(findings.back(), "hashlist.dat: given-up: given up after 20 failures in a row, " +
                                 std::to_string(300 - summary.checked) + " files unchecked");
}

class VerifyCommand : public EngineTest {
 protected:
  // The exit status, and what the command prints, without times and rates.
  static std::string Run(const std::string& arguments) {
    return std::regex_replace(RunPublish("verify " + arguments), std::regex(", [0-9.]+ s, [^,]+/s"),
                              "");
  }
};

TEST_F(VerifyCommand, FolderIsCheckedLikeAServer) {
  const std::string stream = Compressed("content");
  const std::string large(200000, 'a');
  WriteFile("p/l", FileLine("sub\\a", large) + FileLine("./VelmoraUpdate.dat", "s") +
                       FileLine("z.compressed", stream, "content") + FileLine("gone", "gone") +
                       FileLine("old", "new") + FileLine("dir", "") +
                       FileLine("\x95\x5C.dat", "h"));
  WriteFile("p/sub/a", large);
  WriteFile("p/VelmoraUpdate.dat", "s");
  WriteFile("p/z.compressed", stream);
  WriteFile("p/old", "old");
  WriteFile("p/dir/x", "");
  WriteFile("p/\x95/.dat", "h");
  WriteFile("good/hashlist.dat", FileLine("a", "a"));
  WriteFile("good/a", "a");
  WriteFile("page/hashlist.dat", "<HTML>\n" + FileLine("a", "a"));
  WriteFile("empty/hashlist.dat", "");
  WriteFile("good/enable.cdn", " <!DOCTYPE html>");
  const std::pair<const char*, std::string> cases[] = {
      {"p --list l --connections 1",
       "1: error: p dir: can't be read: it is no file\nerror: p gone: missing\n"
       "error: p old: stale: its hash is " +
           Sha1("old") + "\np: 7 of 7 files, 200776 bytes, 8 requests; 3 errors, 0 warnings\n"},
      // No stream is a terminal, so there is no progress.
      {"good",
       "3: warning: good enable.cdn: a page, which redirects nobody; let the server answer 404 for "
       "files that it doesn't have\ngood: 1 of 1 files, 101 bytes, 2 requests; 0 errors, 1 "
       "warnings\n"},
      {"page",
       "1: error: page hashlist.dat: a page instead of the list\n"
       "page: 0 of 0 files, 107 bytes, 1 requests; 1 errors, 0 warnings\n"},
      {"empty",
       "3: warning: empty hashlist.dat: the list names no file\n"
       "empty: 0 of 0 files, 0 bytes, 1 requests; 0 errors, 1 warnings\n"},
      {"p",
       "1: error: p hashlist.dat: missing\n"
       "p: 0 of 0 files, 0 bytes, 1 requests; 1 errors, 0 warnings\n"},
      {"--settings good/a", "1: velmora-publish: good/a: leads to no server\n"},
  };
  for (const auto& [arguments, expected] : cases) {
    EXPECT_EQ(Run(arguments + std::string(" 2>&1")), expected);
  }
  for (const char* wrong : {"", "nowhere", "https://127.0.0.1/d", "good --settings good/a",
                            "good --connections 0", "--settings nowhere"}) {
    EXPECT_EQ(Run(std::string(wrong) + " 2>/dev/null").substr(0, 3), "2: ") << wrong;
  }
  const std::string drawn = Run("good --progress 2>&1 >/dev/null");
  EXPECT_TRUE(drawn.starts_with("3: \r\x1B[K[") && drawn.ends_with("\r\x1B[K")) << drawn;
}

// Of these mirrors, one redirects to another one, which is listed twice but verified once, and one
// is no URL. The credentials of the settings are sent when the server asks for
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
      "BaseURL2=http://127.0.0.83/files\nBaseURL3=nonsense\nBaseURL4=http://127.0.0.83:80/files\n");
  const std::string text = Run("--settings players.dat --json");
  EXPECT_TRUE(text.starts_with("1: "));
  auto report = nlohmann::json::parse(text.substr(3));
  for (nlohmann::json& server : report["servers"]) server.erase("seconds");
  EXPECT_EQ(report, nlohmann::json::parse(R"({
    "servers": [
      {"server": "http://127.0.0.82:8080/d", "redirectedTo": "http://127.0.0.83/files", "files": 2,
       "checked": 2, "bytes": 206, "requests": 3, "errors": 1, "warnings": 1},
      {"server": "http://127.0.0.83/files"}],
    "findings": [
      {"severity": "warning", "server": "http://127.0.0.82:8080/d", "path": "enable.cdn",
       "kind": "redirection", "what":
       "the port is 9, but patchers use port 80; offer the files there, and leave the port out"},
      {"severity": "error", "server": "http://127.0.0.83/files", "path": "\u30c6",
       "kind": "missing", "what": "missing"}],
    "files": 2, "checked": 2, "bytes": 206, "errors": 1, "warnings": 1, "stopped": false})"));
}

// Without a word about what isn't a finding.
TEST_F(VerifyCommand, SaysWhatTheServerDoesAndWhatHelps) {
  const LoopbackServer server([](const ServedRequest& request) {
    const std::string list = FileLine("a", "a");
    const bool isKnown = request.head.find("Authorization: Basic dTpw\r\n") != std::string::npos;
    if (request.path.starts_with("/private/") && !isKnown) {
      return Status(401, "WWW-Authenticate: Basic realm=\"x\"\r\n");
    }
    if (request.path.ends_with("/a")) return Ok("a");
    if (request.path.starts_with("/gzip/")) return Raw("Content-Encoding: gzip\r\n", list);
    if (request.path.starts_with("/gzip2/")) {
      return Status(200, "Content-Encoding: gzip\r\n", "\x1F\x8B");
    }
    if (request.path.starts_with("/moved/")) return Status(308, "Location: /new/l\r\n");
    if (request.path.starts_with("/https/")) {
      return Status(302, "Location: https://127.0.0.1:1" + request.path + "\r\n");
    }
    if (request.path.starts_with("/cut/")) return Reply{"", Reply::End::kReset};
    return Ok(list);
  });
  std::uint16_t closed = 0;
  {
    const LoopbackServer other([](const ServedRequest&) { return Ok(""); });
    closed = other.port();
  }
  WriteFile("password", "p\r\nsecond line");
  WriteFile("wrong", "q");
  const std::string root = "http://127.0.0.1:" + std::to_string(server.port());
  const std::string refused = "http://127.0.0.1:" + std::to_string(closed);
  const std::tuple<std::string, std::string, int, std::string> cases[] = {
      {root, "", 0, ""},
      {refused, "", 1, "no answer: connection refused; check the port"},
      {"http://nowhere.invalid", "", 1, "no answer: unknown host; check its name"},
      {root + "/cut", "", 1, "no answer: the connection broke off"},
      {root + "/gzip", "", 1, "the server compresses: Content-Encoding: gzip; turn that off"},
      {root + "/gzip2", "", 1, "the server compresses: Content-Encoding: gzip; turn that off"},
      {root + "/moved", "", 3, "redirected to " + root + "/new/l; patchers follow, with one more"},
      {root + "/https", "", 1,
       "no answer: connection refused; check the port, and that the server is running; "
       "redirected to https://127.0.0.1:1/https/hashlist.dat"},
      {root + "/private", "", 1, "status 401: wants a user and a password; give them by --user"},
      {root + "/private", "--user u --password-file password", 0, ""},
      {root + "/private", "--user u --password-file wrong", 1,
       "status 401: refuses user u with the password given"},
  };
  for (const auto& [where, options, status, what] : cases) {
    std::string expected = std::to_string(status) + ": ";
    if (status != 0) expected += status == 3 ? "warning: " : "error: ";
    if (status != 0) expected += where + " hashlist.dat: " + what;
    const std::string text = Run(where + " --quiet " + options + " 2>&1");
    EXPECT_TRUE(text.starts_with(expected) && (status != 0 || text == expected)) << text;
  }
  setenv("VELMORA_PASSWORD", "p", 1);
  EXPECT_EQ(Run(root + "/private --user u --quiet"), "0: ");
  unsetenv("VELMORA_PASSWORD");
  for (const std::string& wrong : {root + "/private --user u", root + " --password-file password",
                                   "http://u:secret@" + root.substr(7) + "/private",
                                   root + " --user u --password-file none"}) {
    const std::string text = Run(wrong + " 2>&1");
    EXPECT_TRUE(text.starts_with("2: velmora-publish: ")) << text;
    EXPECT_EQ(text.find("secret"), std::string::npos);
  }
  WriteFile("folder/hashlist.dat", FileLine("a", "a"));
  WriteFile("folder/a", "a");
  WriteFile("folder/enable.cdn", "http://cdn.example.com/game\n");
  EXPECT_TRUE(Run("folder --quiet").starts_with("1: error: folder enable.cdn: a line end behind"));
}

// Waits until the server has been asked.
constexpr char kThenInterrupt[] =
    " 2>&1 & timeout 20 sh -c 'until [ -e asked ]; do sleep 0.05; done'; kill -INT $!; sleep 0.3; ";

TEST_F(VerifyCommand, SignalStopsIt) {
  const LoopbackServer server(ManyFiles([] {
    WriteFile("asked", "");
    while (!std::filesystem::exists("interrupted")) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return Ok("wrong");
  }));
  const std::string root = "http://127.0.0.1:" + std::to_string(server.port()) + "/d";
  EXPECT_EQ(Run(root + " --connections 1" + kThenInterrupt + "touch interrupted; wait $!"),
            "1: " + root + ": 0 of 300 files, 30605 bytes, 2 requests; 0 errors, 0 warnings\n" +
                "velmora-publish: stopped before the end\n");
}

// A server that doesn't answer delays the stop. A second signal ends the process.
TEST_F(VerifyCommand, SecondSignalEndsItAtAStalledServer) {
  const LoopbackServer server([](const ServedRequest&) {
    WriteFile("asked", "");
    return Reply{"", Reply::End::kStall};
  });
  EXPECT_EQ(Run("http://127.0.0.1:" + std::to_string(server.port()) + kThenInterrupt +
                "kill -0 $! && echo still there; kill -INT $!; wait $!"),
            std::to_string(128 + SIGINT) + ": still there\n");
}

}  // namespace
}  // namespace velmora::publish
