#include "support/hostile_replies.h"

#include <algorithm>
#include <cstddef>

#include "base/text.h"

namespace velmora::test {
namespace {

std::string Length(std::size_t bytes) {
  return "Content-Length: " + std::to_string(bytes) + "\r\n";
}

Reply StatusLine(Random& random, const Honest& honest) {
  std::string line = random.PickOf(
      "|\r\n|garbage|HTTP/1.1|HTTP/1.1 |HTTP/1.1 2|HTTP/1.1 20|HTTP/1.1 2000 OK|HTTP/1.1 200|"
      "HTTP/1.1 200 |HTTP/1.1 -200 OK|HTTP/1.1 000 OK|HTTP/1.1 abc OK|HTTP/9.9 200 OK|"
      "HTTP/1.0 200 OK|HTTP/0.9 200 OK|HTTP/2 200 OK|http/1.1 200 ok|HTTP/1.1 200 Not Found|"
      "HTTP/1.1\t200\tOK|HTTP/1.1 200@OK|ICY 200 OK| HTTP/1.1 200 OK|HTTP/1.1 404 200 OK|"
      "HTTP/1.1 200 OK\r\nHTTP/1.1 404 Gone|@@@@");
  if (random.Chance(10)) line += std::string(random.Pick<std::size_t>({5000, 500000}), 'x');
  if (random.Chance(20)) line = random.Bytes(random.Below(300));
  if (random.Chance(5)) line = honest.body;  // no head at all
  return {line + "\r\n" + Length(honest.body.size()) + "\r\n" + honest.body, Reply::End::kClose};
}

Reply StatusCode(Random& random, const Honest& honest) {
  const std::string code = random.PickOf(
      "101|199|201|203|204|205|206|226|299|304|305|306|400|401|403|404|407|408|410|416|417|421|"
      "426|429|451|500|502|503|504|505|511|599|999");
  const std::string header = random.PickOf(
      "|Content-Range: bytes 0-4/5|Content-Range: bytes 99-1/*|WWW-Authenticate: Basic realm=x|"
      "WWW-Authenticate: Digest realm=\"x\", nonce=\"\", qop=\"auth\"|Proxy-Authenticate: Basic|"
      "WWW-Authenticate: Negotiate\r\nWWW-Authenticate: NTLM|Retry-After: 99999999|"
      "Upgrade: h2c\r\nConnection: Upgrade");
  Reply reply = Status(random.Chance(80) ? ToNumber(code) : static_cast<int>(random.Below(1000)),
                       header.empty() ? "" : header + "\r\n", random.Chance(50) ? honest.body : "");
  reply.end = Reply::End::kClose;
  return reply;
}

// Answers before the answer: few, many, without end.
Reply InterimAnswers(Random& random, const Honest& honest) {
  const std::string interim = "HTTP/1.1 " + random.PickOf("100|102|103") + " X\r\n" +
                              random.PickOf("|Link: <x>\r\n") + "\r\n";
  if (random.Chance(10)) return {"", Reply::End::kClose, Times(100, interim)};
  return {Times(random.Pick<std::size_t>({1, 2, 50, 5000}), interim) + Ok(honest.body).bytes,
          Reply::End::kClose};
}

Reply Redirect(Random& random, const Honest& honest) {
  const auto location = [&] {
    const std::string target = random.PickOf(
        "/hashlist.dat|/nothing||//|http://|http://[::|http://127.0.0.1:1/|"
        "http://127.0.0.1:99999/|file:///etc/passwd|ftp://127.0.0.1:1/x|javascript:1|/@x");
    const std::vector<std::string> made = {honest.path,  // once, or in a loop
                                           honest.path + "?" + std::to_string(random.Below(9)),
                                           "/honest" + honest.path,
                                           std::string(60000, '/'),
                                           "/" + std::string(2000, '%'),
                                           random.Bytes(20)};
    return "Location: " + (random.Chance(60) ? target : random.Pick(made)) + "\r\n";
  };
  std::string head = "HTTP/1.1 " + random.PickOf("300|301|302|303|307|308") + " X\r\n";
  if (!random.Chance(10)) head += location();
  if (random.Chance(10)) head += location();
  if (random.Chance(10)) return {head + "\r\n", Reply::End::kClose, random.Bytes(65536)};
  return {head + Length(honest.body.size()) + "\r\n" + honest.body,
          random.Chance(50) ? Reply::End::kKeep : Reply::End::kClose};
}

Reply Headers(Random& random, const Honest& honest) {
  if (random.Chance(8)) return {"HTTP/1.1 200 OK\r\n", Reply::End::kClose, "X-Y: z\r\n"};
  const std::vector<std::string> large = {
      "X: " + std::string(random.Pick<std::size_t>({4000, 99000, 200000, 2000000}), 'x'),
      std::string(random.Pick<std::size_t>({4000, 200000}), 'X') + ": x",
      Times(random.Pick<std::size_t>({100, 3000, 20000}), "X-Y: z\r\n") + "X: y",
      Times(5000, "Set-Cookie: a=b\r\n") + "X: y", random.Bytes(random.Below(500))};
  const std::string odd = random.PickOf(
      "X: folded\r\n \t further| folded from nothing|X: a@b|@|no colon|: no name|"
      "X: bare LF\nY: z|X: bare CR\rY: z|Content-Length|Content-Length : 5|"
      "Content-Encoding: gzip|Content-Encoding: deflate, br, x|Transfer-Encoding: gzip|"
      "Transfer-Encoding: identity|Connection: close, keep-alive, upgrade|"
      "Content-Type: multipart/byteranges; boundary=x|"
      "Alt-Svc: h2=\"127.0.0.1:1\"\r\nStrict-Transport-Security: max-age=99");
  const std::string first = (random.Chance(75) ? odd : random.Pick(large)) + "\r\n";
  const std::string length = random.Chance(85) ? Length(honest.body.size()) : "";
  return Raw(random.Chance(50) ? first + length : length + first, honest.body);
}

Reply Lengths(Random& random, const Honest& honest) {
  const std::size_t right = honest.body.size();
  const std::string number = std::to_string(right);
  const std::string fixed = random.PickOf(
      "|-1|-2147483648|-9223372036854775808|0|1|0x10|2147483646|2147483647|2147483648|4294967295|"
      "4294967296|9223372036854775807|9223372036854775808|18446744073709551615|"
      "18446744073709551616|text");
  const std::string around = random.PickOf("-|+|000000000000000000000000|\t|4294967296") + number +
                             random.PickOf("||.0|x|@| ");
  const std::string another =
      std::to_string(random.Pick<std::size_t>({right - 1, right + 1, right / 2, right * 2}));
  std::string headers = "Content-Length: " +
                        random.Pick<std::string>({fixed, fixed, around, another,
                                                  number + ", " + number, number + "," + another,
                                                  number + " " + number, std::string(400, '9')}) +
                        "\r\n";
  if (random.Chance(20)) headers = Length(right) + headers;
  if (random.Chance(20)) headers += Length(right);
  if (random.Chance(10)) headers += "Transfer-Encoding: chunked\r\n";
  return Raw(headers, honest.body);
}

Reply Chunks(Random& random, const Honest& honest) {
  const auto odd = [&random]() -> std::string {
    const std::string size = random.PickOf(
        "zz|-1||7FFFFFFF|80000000|FFFFFFFF|100000000|7FFFFFFFFFFFFFFF|FFFFFFFFFFFFFFFF|5 \n|0|"
        "0\r\nContent-Length: 3\r\n|0\r\n@@");
    const std::string filler(random.Pick<std::size_t>({1000, 200000}), 'F');
    return (random.Chance(70) ? size : random.PickOf("|5;|0\r\nX: ") + filler) + "\r\n";
  };
  std::string coded;
  for (std::size_t at = 0; at < honest.body.size();) {
    if (random.Chance(5)) coded += odd();
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
  if (random.Chance(10)) reply.repeated = random.PickOf("1\r\nx\r\n|0|X: y\r\n");
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
  const std::string& right = honest.body;
  const std::string start = right.substr(0, random.Below(right.size()));
  std::string damaged = right;
  damaged[start.size()] ^= static_cast<char>(1U << random.Below(8));
  const std::string more = random.Bytes(random.Pick<std::size_t>({1, 1000, 200000, 3000000}));
  if (random.Chance(12)) return Raw(Length(right.size()), right + more);
  return Ok(random.Pick<std::string>(
      {random.Bytes(right.size()), damaged, right.substr(start.size()) + start, start, right + more,
       std::string(right.size(), '\0'), start + random.Bytes(right.size())}));
}

Reply EndlessBody(Random& random, const Honest& honest) {
  const std::string header = random.PickOf(
      "|Content-Length: 0\r\n|Content-Length: 2147483647\r\n|Transfer-Encoding: chunked\r\n|"
      "Content-Encoding: gzip\r\n");
  Reply reply = Raw(random.Chance(40) ? Length(honest.body.size()) : header, honest.body);
  reply.repeated = random.Bytes(65536);
  return reply;
}

// A right answer, or none, and what then becomes of the connection that the next request expects.
Reply KeptConnection(Random& random, const Honest& honest) {
  const std::string right = Ok(honest.body).bytes;
  const Reply::End end = random.Pick<Reply::End>({Reply::End::kClose, Reply::End::kReset});
  const std::string length = Length(honest.body.size()) + "\r\n" + honest.body;
  return random.Pick<Reply>(
      {{"", end},
       {right, end},
       {"HTTP/1.1 200 OK\r\nConnection: close\r\n" + length, Reply::End::kKeep},
       {right + Ok("wrong").bytes, Reply::End::kKeep},
       {right + random.Bytes(1 + random.Below(3000)), Reply::End::kKeep},
       {"HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nKeep-Alive: timeout=0\r\n" + length, end}});
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

std::string Random::PickOf(std::string_view choices) {
  const auto bars = static_cast<std::size_t>(std::count(choices.begin(), choices.end(), '|'));
  for (std::size_t skipped = Below(bars + 1); skipped > 0; --skipped) {
    choices.remove_prefix(choices.find('|') + 1);
  }
  std::string choice(choices.substr(0, choices.find('|')));
  std::replace(choice.begin(), choice.end(), '@', '\0');
  return choice;
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
