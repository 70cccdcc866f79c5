// HTTP access against a server that does as it is told.
#include "platform/http.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/clock.h"
#include "support/loopback_server.h"

namespace velmora::platform {
namespace {

using test::LoopbackServer;
using test::Ok;
using test::Raw;
using test::Reply;
using test::ServedRequest;
using test::Status;

// Where the tests run as a Windows program, the HTTP service is Wine's: it follows redirects
// without end, gives more of a body than was announced, and takes dots in a query for parts of
// the path.
#ifdef _WIN32
constexpr bool kUnderWine = true;
#else
constexpr bool kUnderWine = false;
#endif

class Http : public testing::Test {
 protected:
  void Connect(LoopbackServer::Answer answer, const std::string& user = "",
               const std::string& password = "") {
    server_ = std::make_unique<LoopbackServer>(std::move(answer));
    session_ = OpenHttpSession("TestAgent");
    SetHttpTimeouts(session_, 1000);
    connection_ = ConnectHttp(session_, "127.0.0.1", server_->port(), user, password);
    ASSERT_NE(connection_, kNoHttpHandle);
  }
  ~Http() override {
    CloseHttpHandle(connection_);
    CloseHttpHandle(session_);
  }

  HttpHandle Get(const std::string& path) const {
    const HttpHandle request = OpenHttpGet(connection_, path);
    SendHttpRequest(request);
    return request;
  }
  static std::string Text(HttpHandle request, HttpField field = HttpField::kStatusCode) {
    return QueryHttpField(request, field, 32).value_or("(none)");
  }
  // The body by pieces, "!" behind it if a read failed.
  static std::string Body(HttpHandle request) {
    std::string body;
    while (const std::uint32_t available = QueryHttpDataAvailable(request)) {
      std::string piece(available, '\0');
      std::uint32_t read = 0;
      const bool succeeded = ReadHttp(request, piece.data(), available, read);
      body.append(piece, 0, read);
      if (!succeeded) return body + "!";
    }
    return body;
  }

  std::unique_ptr<LoopbackServer> server_;
  HttpHandle session_ = kNoHttpHandle;
  HttpHandle connection_ = kNoHttpHandle;
};

TEST_F(Http, PlainAnswer) {
  Connect([](const ServedRequest&) { return Ok("body"); });
  const HttpHandle request = Get("/some path");
  EXPECT_EQ(Text(request), "200");
  EXPECT_EQ(Text(request, HttpField::kContentLength), "4");
  EXPECT_FALSE(QueryHttpField(request, HttpField::kStatusCode, 3).has_value());
  EXPECT_EQ(Body(request), "body");
  EXPECT_EQ(QueryHttpDataAvailable(request), 0U);
  CloseHttpHandle(request);
  CloseHttpHandle(request);
  EXPECT_EQ(Text(request), "(none)");

  const ServedRequest served = server_->Requests().at(0);
  EXPECT_EQ(served.path, "/some%20path");
  EXPECT_TRUE(served.head.starts_with("GET /some%20path HTTP/1.1\r\n"));
  EXPECT_NE(served.head.find("User-Agent: TestAgent\r\n"), std::string::npos);
  EXPECT_EQ(served.head.find("Accept-Encoding"), std::string::npos);
}

TEST_F(Http, PathsGoOutAsTheyStand) {
  Connect([](const ServedRequest&) { return Ok(""); });
  for (const char* path : {"/a%20b", "/a?b=c", "//a", "/"}) {
    CloseHttpHandle(Get(path));
    EXPECT_EQ(server_->Requests().back().path, path);
  }
  CloseHttpHandle(Get("/\x83\x65.dat"));
  EXPECT_EQ(server_->Requests().back().path, "/%83e.dat");
  const struct {
    const char* path;
    const char* target;
  } changed[] = {
      {"no-slash", "/no-slash"},
      {"/./x.dat", "/x.dat"},
      {"./x", "/x"},
      {"/a/../b/./c", "/b/c"},
      {"/../a", "/a"},
      {"/a/../../b", "/b"},
      {"/a/..", "/"},
      {"/a/.", "/a/"},
      {"/a/../", "/"},
      {"/a//../b", "/a/b"},
      {"//a/..", "//"},
      {"/..", "/"},
      {".", "/"},
      {"/a/b/..?c", "/a/?c"},
      {"/.a", "/.a"},
      {"/a../b.", "/a../b."},
      {"/a#/../b", "/b"},
      {"/%2e%2E/b/%2e", "/%2e%2E/b/%2e"},
      {"/...", "/..."},
  };
  for (const auto& test : changed) {
    CloseHttpHandle(Get(test.path));
    EXPECT_EQ(server_->Requests().back().path, test.target) << test.path;
  }
  if (!kUnderWine) {
    CloseHttpHandle(Get("/a?b=/../c"));
    EXPECT_EQ(server_->Requests().back().path, "/a?b=/../c");
  }
  const std::size_t count = server_->Requests().size();
  EXPECT_EQ(Text(Get("/a\r\nX: y")), "(none)");
  EXPECT_EQ(server_->Requests().size(), count);
}

TEST_F(Http, OneConnectionIsKeptAndReplaced) {
  int answered = 0;
  Connect([&answered](const ServedRequest&) {
    Reply reply = Ok("x");
    // Every third answer is the last one on its connection, and doesn't say so.
    if (++answered % 3 == 0) reply.end = Reply::End::kClose;
    return reply;
  });
  for (int i = 0; i < 12; ++i) {
    const HttpHandle request = Get("/x");
    EXPECT_EQ(Text(request), "200") << i;
    EXPECT_EQ(Body(request), "x");
    CloseHttpHandle(request);
  }
  EXPECT_EQ(server_->Requests().size(), 12U);
  EXPECT_EQ(server_->Requests().back().connection, 4);
}

TEST_F(Http, RedirectsAndCredentials) {
  Connect(
      [](const ServedRequest& request) {
        const bool knows =
            request.head.find("Authorization: Basic dXNlcjpwdw==") != std::string::npos;
        if (request.path == "/moved") return Status(302, "Location: /there\r\n", "moved");
        if (request.path == "/there") return Ok("found");
        if (request.path == "/loop") return Status(302, "Location: /loop\r\n");
        return knows ? Ok("secret") : Status(401, "WWW-Authenticate: Basic realm=\"x\"\r\n");
      },
      "user", "pw");
  const HttpHandle moved = Get("/moved");
  EXPECT_EQ(Text(moved), "200");
  EXPECT_EQ(Body(moved), "found");
  const HttpHandle secret = Get("/secret");
  EXPECT_EQ(Text(secret), "200");
  EXPECT_EQ(Body(secret), "secret");
  if (!kUnderWine) {
    EXPECT_NE(Text(Get("/loop")), "200");
  }
  // Credentials go out only when they are asked for.
  EXPECT_EQ(server_->Requests().at(0).head.find("Authorization"), std::string::npos);
}

// What a server wants credentials by is found out once; it is never told to another server.
TEST_F(Http, CredentialsAreAskedForOnce) {
  if (kUnderWine) GTEST_SKIP() << "Wine keeps nothing, knows no Digest, and tells other servers";
  LoopbackServer other([](const ServedRequest&) { return Ok("other"); });
  const std::string away =
      "Location: http://127.0.0.1:" + std::to_string(other.port()) + "/away\r\n";
  const auto serve = [&away](const ServedRequest& request) {
    const std::string asked = request.path.starts_with("/digest") ? "Digest" : "Basic";
    const bool isSpent =
        request.path == "/digest-once" && request.head.find("nc=00000001") == std::string::npos;
    if (isSpent || request.head.find("Authorization: " + asked) == std::string::npos) {
      return Status(401,
                    "WWW-Authenticate: " + asked + " realm=\"x\", nonce=\"n\", qop=\"auth\"\r\n");
    }
    return request.path.ends_with("away") ? Status(302, away) : Ok(request.path);
  };
  const auto bodyOf = [this](const std::string& path) {
    const HttpHandle request = Get(path);
    const std::string body = Body(request);
    CloseHttpHandle(request);
    return body;
  };
  for (const std::string& kind : {std::string("/basic"), std::string("/digest")}) {
    SCOPED_TRACE(kind);
    Connect(serve, "user", "pw");
    for (const char* name : {"1", "2", "3"}) EXPECT_EQ(bodyOf(kind + name), kind + name);
    EXPECT_EQ(server_->Requests().size(), 4U);
    EXPECT_EQ(server_->Requests().back().connection, 1);
    EXPECT_EQ(bodyOf(kind + "-away"), "other");
    EXPECT_EQ(other.Requests().back().head.find("Authorization"), std::string::npos);
    // Where another part of the server wants something else, it gets that.
    for (const char* path : {"/digest-again", "/digest-once", "/basic-again"})
      EXPECT_EQ(bodyOf(path), path);
  }
}

// A body by chunks, and by one read for all of it: an early end is an end, a broken transfer isn't.
TEST_F(Http, BodiesThatEndEarlyBreakOrStall) {
  const std::string length = "Content-Length: 10\r\n";
  const std::string digits = "0123456789";
  const std::string more = kUnderWine ? digits + "and more" : digits;
  const struct {
    const char* name;
    Reply reply;
    std::string body;
    bool isWhole;
    std::string length = "10";
  } cases[] = {
      {"whole", Raw(length, digits), digits, true},
      {"closed early", Raw(length, "01234"), "01234", true},
      {"stalled", Raw(length, "01234", Reply::End::kStall), "01234", false},
      {"chunked", Raw("Transfer-Encoding: chunked\r\n", "3\r\nabc\r\n0\r\n\r\n"), "abc", true,
       "(none)"},
      {"until the close", Raw("", "abc"), "abc", true, "(none)"},
      // Text that is no length: the caller converts it, and the body goes to the close.
      {"no number", Raw("Content-Length: abc\r\n", "body"), "body", true, "abc"},
      {"no text", Raw("Content-Length: \r\n", ""), "", true, ""},
      {"negative", Raw("Content-Length: -5\r\n", "body"), "body", true, "-5"},
      {"too much", Raw(length, digits + "and more"), more, true},
      {"empty", Ok(""), "", true, "0"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Connect([&test](const ServedRequest&) { return test.reply; });
    const std::uint32_t start = TickCount();
    const HttpHandle request = Get("/x");
    EXPECT_EQ(Text(request), "200");
    EXPECT_EQ(Text(request, HttpField::kContentLength), test.length);
    EXPECT_EQ(Body(request), test.body);
    CloseHttpHandle(request);
    const HttpHandle again = Get("/x");
    char buffer[10];
    std::uint32_t read = 99;
    EXPECT_EQ(ReadHttp(again, buffer, sizeof buffer, read), test.isWhole);
    EXPECT_EQ(std::string(buffer, read), test.body.substr(0, sizeof buffer));
    CloseHttpHandle(again);
    EXPECT_LT(TickCount() - start, 5000U);
  }
}

// An answer whose head breaks off is none, whatever it has said by then.
TEST_F(Http, HeadsThatBreakOff) {
  if (kUnderWine) GTEST_SKIP() << "Wine takes such a head for a whole one";
  for (const Reply::End end : {Reply::End::kClose, Reply::End::kReset, Reply::End::kStall}) {
    Connect([end](const ServedRequest&) {
      return Reply{"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n", end};
    });
    const HttpHandle request = Get("/x");
    EXPECT_EQ(Text(request), "(none)");
    EXPECT_EQ(Text(request, HttpField::kContentLength), "(none)");
    EXPECT_EQ(Body(request), "");
    CloseHttpHandle(request);
  }
}

TEST_F(Http, ClosingAHandleClosesWhatWasOpenedOnIt) {
  Connect([](const ServedRequest&) { return Ok("body"); });
  const HttpHandle request = Get("/x");
  EXPECT_EQ(Text(request), "200");
  CloseHttpHandle(session_);
  EXPECT_EQ(Text(request), "(none)");
  EXPECT_EQ(OpenHttpGet(connection_, "/x"), kNoHttpHandle);
}

TEST_F(Http, LargeBodyArrivesWhole) {
  std::string large(20 << 20, '\0');
  for (std::size_t i = 0; i < large.size(); ++i)
    large[i] = static_cast<char>(i * 2654435761U >> 13);
  Connect([&large](const ServedRequest&) { return Ok(large); });
  const HttpHandle request = Get("/large");
  EXPECT_TRUE(Body(request) == large);
  CloseHttpHandle(request);
}

TEST_F(Http, HandlesAndHostsThatAreNone) {
  for (const char* host : {"", "a b", "a/b", "a\r\nb", "u@h"}) {
    const HttpHandle session = OpenHttpSession("x");
    EXPECT_EQ(ConnectHttp(session, host, 80, "", ""), kNoHttpHandle) << host;
    CloseHttpHandle(session);
  }
  EXPECT_EQ(ConnectHttp(kNoHttpHandle, "h", 80, "", ""), kNoHttpHandle);
  EXPECT_EQ(OpenHttpGet(kNoHttpHandle, "/"), kNoHttpHandle);
  std::uint32_t read = 9;
  char byte = 0;
  EXPECT_FALSE(ReadHttp(kNoHttpHandle, &byte, 1, read));
  EXPECT_EQ(read, 0U);
  EXPECT_EQ(QueryHttpDataAvailable(kNoHttpHandle), 0U);
  SendHttpRequest(kNoHttpHandle);
  CloseHttpHandle(kNoHttpHandle);
}

TEST_F(Http, SilentServerIsGivenUp) {
  Connect([](const ServedRequest&) { return Reply{"", Reply::End::kStall}; });
  const std::uint32_t start = TickCount();
  EXPECT_EQ(Text(Get("/x")), "(none)");
  EXPECT_GE(TickCount() - start, 900U);
  EXPECT_LT(TickCount() - start, 3000U);
}

}  // namespace
}  // namespace velmora::platform
