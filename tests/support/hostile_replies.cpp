#include "support/hostile_replies.h"

#include <algorithm>
#include <cstddef>

#include "base/text.h"

namespace velmora::test {
namespace {

using namespace std::string_literals;

std::string Length(std::size_t bytes) {
  return "Content-Length: " + std::to_string(bytes) + "\r\n";
}

Reply StatusLine(Random& random, const Honest& honest) {
  static const std::vector<std::string> kLines = {
      "",
      "\r\n",
      "garbage",
      "HTTP/1.1",
      "HTTP/1.1 ",
      "HTTP/1.1 2",
      "HTTP/1.1 20",
      "HTTP/1.1 2000 OK",
      "HTTP/1.1 200",
      "HTTP/1.1 200 ",
      "HTTP/1.1 -200 OK",
      "HTTP/1.1 000 OK",
      "HTTP/1.1 abc OK",
      "HTTP/9.9 200 OK",
      "HTTP/1.0 200 OK",
      "HTTP/0.9 200 OK",
      "HTTP/2 200 OK",
      "http/1.1 200 ok",
      "HTTP/1.1 200 Not Found",
      "HTTP/1.1 200 " + std::string(5000, 'x'),
      "HTTP/1.1 200 " + std::string(500000, 'x'),
      "HTTP/1.1\t200\tOK",
      "HTTP/1.1 200\0OK"s,
      "ICY 200 OK",
      " HTTP/1.1 200 OK",
      "HTTP/1.1 404 200 OK",
      "HTTP/1.1 200 OK\r\nHTTP/1.1 404 Gone",
      "\0\0\0\0"s,
  };
  const std::string line = random.Chance(20)  ? random.Bytes(random.Below(300))
                           : random.Chance(5) ? honest.body  // no head at all
                                              : random.Pick(kLines);
  return {line + "\r\n" + Length(honest.body.size()) + "\r\n" + honest.body, Reply::End::kClose};
}

Reply StatusCode(Random& random, const Honest& honest) {
  static const std::vector<int> kCodes = {101, 199, 201, 203, 204, 205, 206, 226, 299, 304, 305,
                                          306, 400, 401, 403, 404, 407, 408, 410, 416, 417, 421,
                                          426, 429, 451, 500, 502, 503, 504, 505, 511, 599, 999};
  static const std::vector<std::string> kHeaders = {
      "",
      "Content-Range: bytes 0-4/5\r\n",
      "Content-Range: bytes 99-1/*\r\n",
      "WWW-Authenticate: Basic realm=\"x\"\r\n",
      "WWW-Authenticate: Digest realm=\"x\", nonce=\"\", qop=\"auth\"\r\n",
      "WWW-Authenticate: Negotiate\r\nWWW-Authenticate: NTLM\r\n",
      "Proxy-Authenticate: Basic\r\n",
      "Retry-After: 99999999\r\n",
      "Upgrade: h2c\r\nConnection: Upgrade\r\n"};
  const int code = random.Chance(80) ? random.Pick(kCodes) : static_cast<int>(random.Below(1000));
  Reply reply = Status(code, random.Pick(kHeaders), random.Chance(50) ? honest.body : "");
  reply.end = Reply::End::kClose;
  return reply;
}

// Answers before the answer: few, many, without end.
Reply InterimAnswers(Random& random, const Honest& honest) {
  const std::string interim = "HTTP/1.1 " + random.Pick<std::string>({"100", "102", "103"}) +
                              " X\r\n" + random.Pick<std::string>({"", "Link: <x>\r\n"}) + "\r\n";
  if (random.Chance(10)) return {"", Reply::End::kClose, Times(100, interim)};
  return {Times(random.Pick<std::size_t>({1, 2, 50, 5000}), interim) + Ok(honest.body).bytes,
          Reply::End::kClose};
}

Reply Redirect(Random& random, const Honest& honest) {
  const std::vector<std::string> targets = {honest.path,  // once, or in a loop
                                            honest.path + "?" + std::to_string(random.Below(9)),
                                            "/honest" + honest.path,
                                            "/hashlist.dat",
                                            "/nothing",
                                            "",
                                            "//",
                                            "http://",
                                            "http://[::",
                                            "http://127.0.0.1:1/",
                                            "http://127.0.0.1:99999/",
                                            "file:///etc/passwd",
                                            "ftp://127.0.0.1:1/x",
                                            "javascript:1",
                                            std::string(60000, '/'),
                                            "/" + std::string(2000, '%'),
                                            "/\0x"s,
                                            random.Bytes(20)};
  const std::string code = random.Pick<std::string>({"300", "301", "302", "303", "307", "308"});
  std::string head = "HTTP/1.1 " + code + " X\r\n";
  if (!random.Chance(10)) head += "Location: " + random.Pick(targets) + "\r\n";
  if (random.Chance(10)) head += "Location: " + random.Pick(targets) + "\r\n";
  if (random.Chance(10)) return {head + "\r\n", Reply::End::kClose, random.Bytes(65536)};
  return {head + Length(honest.body.size()) + "\r\n" + honest.body,
          random.Chance(50) ? Reply::End::kKeep : Reply::End::kClose};
}

Reply Headers(Random& random, const Honest& honest) {
  const std::vector<std::string> odd = {
      "X: " + std::string(random.Pick<std::size_t>({4000, 99000, 200000, 2000000}), 'x') + "\r\n",
      std::string(random.Pick<std::size_t>({4000, 200000}), 'X') + ": x\r\n",
      Times(random.Pick<std::size_t>({100, 3000, 20000}), "X-Y: z\r\n"),
      Times(5000, "Set-Cookie: a=b\r\n"),
      "X: folded\r\n \t further\r\n",
      " folded from nothing\r\n",
      "X: a\0b\r\n"s,
      "\0\r\n"s,
      "no colon\r\n",
      ": no name\r\n",
      "X: bare LF\nY: z\n",
      "X: bare CR\rY: z\r",
      "Content-Length : " + std::to_string(honest.body.size()) + "\r\n",
      "Content-Length\r\n",
      "Content-Encoding: gzip\r\n",
      "Content-Encoding: deflate, br, x\r\n",
      "Transfer-Encoding: gzip\r\n",
      "Transfer-Encoding: identity\r\n",
      "Connection: close, keep-alive, upgrade\r\n",
      "Content-Type: multipart/byteranges; boundary=x\r\n",
      "Alt-Svc: h2=\"127.0.0.1:1\"\r\nStrict-Transport-Security: max-age=99\r\n",
      random.Bytes(random.Below(500)) + "\r\n"};
  if (random.Chance(8)) return {"HTTP/1.1 200 OK\r\n", Reply::End::kClose, "X-Y: z\r\n"};
  const std::string length = random.Chance(85) ? Length(honest.body.size()) : "";
  const std::string first = random.Pick(odd);
  return Raw(random.Chance(50) ? first + length : length + first, honest.body);
}

Reply Lengths(Random& random, const Honest& honest) {
  const std::size_t right = honest.body.size();
  const std::string number = std::to_string(right);
  const std::vector<std::string> values = {"",
                                           "-1",
                                           "-" + number,
                                           "-2147483648",
                                           "-9223372036854775808",
                                           "0",
                                           "1",
                                           "+" + number,
                                           "0x10",
                                           "000000000000000000000000" + number,
                                           number + ", " + number,
                                           number + "," + std::to_string(right + 1),
                                           number + " " + number,
                                           number + ".0",
                                           number + "x",
                                           number + "\0"s,
                                           "\t" + number + " ",
                                           std::to_string(right - 1),
                                           std::to_string(right + 1),
                                           std::to_string(right / 2),
                                           std::to_string(right * 2),
                                           "2147483646",
                                           "2147483647",
                                           "2147483648",
                                           "4294967295",
                                           "4294967296",
                                           "4294967296" + number,
                                           "9223372036854775807",
                                           "9223372036854775808",
                                           "18446744073709551615",
                                           "18446744073709551616",
                                           std::string(400, '9'),
                                           "text"};
  std::string headers = "Content-Length: " + random.Pick(values) + "\r\n";
  if (random.Chance(20)) headers = Length(right) + headers;
  if (random.Chance(20)) headers += Length(right);
  if (random.Chance(10)) headers += "Transfer-Encoding: chunked\r\n";
  return Raw(headers, honest.body);
}

Reply Chunks(Random& random, const Honest& honest) {
  static const std::vector<std::string> kOdd = {"zz\r\n",
                                                "-1\r\n",
                                                "\r\n",
                                                "7FFFFFFF\r\n",
                                                "80000000\r\n",
                                                "FFFFFFFF\r\n",
                                                "100000000\r\n",
                                                "7FFFFFFFFFFFFFFF\r\n",
                                                "FFFFFFFFFFFFFFFF\r\n",
                                                std::string(1000, '0') + "5\r\n",
                                                std::string(1000, 'F') + "\r\n",
                                                "5;" + std::string(100000, 'x') + "\r\n",
                                                "5 \n",
                                                "0\r\nX: " + std::string(200000, 'x') + "\r\n\r\n",
                                                "0\r\nContent-Length: 3\r\n\r\n",
                                                "0\r\n\0\0"s,
                                                "0"};
  std::string coded;
  for (std::size_t at = 0; at < honest.body.size();) {
    if (random.Chance(5)) coded += random.Pick(kOdd);
    const std::string piece = honest.body.substr(at, 1 + random.Below(honest.body.size()));
    coded += FormatText("%x", static_cast<unsigned>(piece.size())) +
             (random.Chance(10) ? ";x=y" : "") + "\r\n" + piece;
    if (!random.Chance(3)) coded += "\r\n";
    at += piece.size();
  }
  if (random.Chance(70)) coded += "0\r\n\r\n";
  // With a length beside it the patcher goes on to read.
  std::string headers = "Transfer-Encoding: chunked\r\n";
  if (random.Chance(75)) headers += Length(honest.body.size());
  Reply reply = Raw(headers, coded);
  if (random.Chance(10)) reply.repeated = random.Pick<std::string>({"1\r\nx\r\n", "0", "X: y\r\n"});
  return reply;
}

Reply EarlyEnd(Random& random, const Honest& honest) {
  const std::string whole = Ok(honest.body).bytes;
  const std::size_t head = whole.size() - honest.body.size();
  const std::size_t length =
      random.Chance(30) ? random.Below(head + 1) : random.Below(whole.size());
  return {whole.substr(0, length), random.Chance(50) ? Reply::End::kClose : Reply::End::kReset};
}

Reply BodyBytes(Random& random, const Honest& honest) {
  std::string body = honest.body;
  const auto at = static_cast<std::ptrdiff_t>(random.Below(body.size()));
  switch (random.Below(8)) {
    case 0:
      return Ok(random.Bytes(body.size()));
    case 1:
      body[random.Below(body.size())] ^= static_cast<char>(1U << random.Below(8));
      return Ok(body);
    case 2:
      std::rotate(body.begin(), body.begin() + at, body.end());
      return Ok(body);
    case 3:
      return Ok(std::string(body.size(), '\0'));
    case 4:
      return Ok(body.substr(0, random.Below(body.size())));
    case 5:
      return Ok(body + random.Bytes(random.Pick<std::size_t>({1, 1000, 3000000})));
    case 6:
      return Raw(Length(body.size()), body + random.Bytes(random.Pick<std::size_t>({1, 200000})));
    default:
      return Ok(body.substr(0, random.Below(body.size())) + random.Bytes(body.size()));
  }
}

Reply EndlessBody(Random& random, const Honest& honest) {
  static const std::vector<std::string> kHeaders = {
      "", "Content-Length: 0\r\n", "Content-Length: 2147483647\r\n",
      "Transfer-Encoding: chunked\r\n", "Content-Encoding: gzip\r\n"};
  const std::string own = Length(honest.body.size());
  Reply reply = Raw(random.Chance(40) ? own : random.Pick(kHeaders), honest.body);
  reply.repeated = random.Bytes(65536);
  return reply;
}

// A right answer, or none, and what then becomes of the connection that the next request expects.
Reply KeptConnection(Random& random, const Honest& honest) {
  const std::string right = Ok(honest.body).bytes;
  const Reply::End end = random.Pick<Reply::End>({Reply::End::kClose, Reply::End::kReset});
  switch (random.Below(8)) {
    case 0:
    case 1:
      return {"", end};
    case 2:
    case 3:
      return {right, end};
    case 4:
      return Raw("Connection: close\r\n" + Length(honest.body.size()), honest.body,
                 Reply::End::kKeep);
    case 5:
      return {right + Ok("wrong").bytes, Reply::End::kKeep};
    case 6:
      return {right + random.Bytes(1 + random.Below(3000)), Reply::End::kKeep};
    default:
      return {"HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nKeep-Alive: timeout=0\r\n" +
                  Length(honest.body.size()) + "\r\n" + honest.body,
              end};
  }
}

Reply Stall(Random& random, const Honest& honest) {
  Reply reply = EarlyEnd(random, honest);
  reply.end = Reply::End::kStall;
  return reply;
}

}  // namespace

std::string Times(std::size_t count, const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < count; ++i) result += text;
  return result;
}

const std::vector<HostileKind>& HostileKinds() {
  static const std::vector<HostileKind> kKinds = {
      {"status line", StatusLine}, {"status code", StatusCode}, {"interim", InterimAnswers},
      {"redirect", Redirect},      {"headers", Headers},        {"length", Lengths},
      {"chunks", Chunks},          {"early end", EarlyEnd},     {"body", BodyBytes},
      {"endless", EndlessBody},    {"kept", KeptConnection},    {"stall", Stall}};
  return kKinds;
}

}  // namespace velmora::test
