#include "support/hostile_replies.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "base/text.h"

namespace velmora::test {
namespace {

using End = Reply::End;

// Replies are written as patterns:
//
//   {a|b|c}   one of these, which may be patterns themselves
//   ^n(a)     a, n times
//   @         a zero byte
//   $B $N $L  the right body, its size, a Content-Length header with that size
//   $P $O     the path that was asked for, the right reply
//   $T        the right reply, cut short
//   $S $E     the right body in two parts, whose sizes are $s and $e in hexadecimal digits
//   $D        the right body with one bit changed
//   $R $r $M  random bytes: as many as the body has, a few, many
//   $w $d     a number near $N, a digit
struct Kind {
  const char* name;
  const char* bytes;
  std::vector<End> ends = {End::kClose};
  const char* repeated = "";
};

#define OK "HTTP/1.1 200 OK\r\n"
#define LOCATION                                                                          \
  "Location: {/hashlist.dat||//|http://|http://[::|http://127.0.0.1:99999/|javascript:1|" \
  "file:///etc/passwd|/@x|{$P|$P?$d|/honest$P|^60000(/)|/^2000(%)|$r}}\r\n"
#define ODD_CHUNK                                                                           \
  "{{zz|-1||7FFFFFFF|80000000|FFFFFFFF|100000000|7FFFFFFFFFFFFFFF|FFFFFFFFFFFFFFFF|5 \n|0|" \
  "0\r\nContent-Length: 3\r\n|0\r\n@@}|{|5;|0\r\nX: }^{1000|200000}(F)}\r\n"

const std::vector<Kind> kKinds = {
    {"status line",
     "{|\r\n|garbage|HTTP/1.1|HTTP/1.1 |HTTP/1.1 2|HTTP/1.1 2000 OK|HTTP/1.1 200|HTTP/1.1 -200 OK|"
     "HTTP/9.9 200 OK|HTTP/1.0 200 OK|http/1.1 200 ok|HTTP/1.1\t200\tOK|HTTP/1.1 200@OK|"
     " HTTP/1.1 200 OK|HTTP/1.1 200 OK\r\nHTTP/1.1 404 Gone|@@@@|{HTTP/1.1 200 |}^500000(x)|$r|$B}"
     "\r\n$L\r\n$B"},
    {"status code",
     "HTTP/1.1 {101|199|204|206|304|401|407|416|500|$d$d$d|$d$d$d} X\r\n"
     "{|Content-Range: bytes 99-1/*\r\n|Proxy-Authenticate: Basic\r\n|"
     "WWW-Authenticate: Digest realm=\"x\", nonce=\"\", qop=\"auth\"\r\n|"
     "Upgrade: h2c\r\nConnection: Upgrade\r\n}{$L\r\n$B|Content-Length: 0\r\n\r\n}"},
    // Replies before the reply: few, many, and nothing else.
    {"interim",
     "^{1|2|50|5000}(HTTP/1.1 {100|102|103} X\r\n{|Link: <x>\r\n}\r\n){|$O|$O|$O|$O|$O}"},
    {"redirect",
     "HTTP/1.1 {300|301|302|303|307|308} X\r\n{" LOCATION "|" LOCATION "|}{" LOCATION
     "|||}$L\r\n$B",
     {End::kKeep, End::kClose}},
    {"headers", OK
     "{$L|}{X: folded\r\n \t further| folded from nothing|X: a@b|@|no colon|: no name|"
     "X: bare LF\nY: z|X: bare CR\rY: z|Content-Length|Content-Length : 5|Content-Encoding: gzip|"
     "Transfer-Encoding: gzip|Connection: close, keep-alive, upgrade|"
     "Alt-Svc: h2=\"127.0.0.1:1\"\r\nStrict-Transport-Security: max-age=99|"
     "{X: ^{4000|99000|2000000}(x)|^200000(X): x|^{100|20000}(X-Y: z\r\n)X: y|$r}}\r\n{$L|}\r\n$B"},
    {"endless headers", OK, {End::kClose}, "X-Y: z\r\n"},
    {"length",
     OK "{$L||||}Content-Length: {{|-1|-2147483648|-9223372036854775808|0|1|0x10|2147483646|"
        "2147483647|2147483648|4294967295|4294967296|9223372036854775807|9223372036854775808|"
        "18446744073709551615|18446744073709551616|text}|{-|+|^24(0)|\t|4294967296}$N{||.0|x|@| }|"
        "$w|$N, $N|$N,$w|$N $N|^400(9)}\r\n{$L||||}{|||||||Transfer-Encoding: chunked\r\n}\r\n$B"},
    // With a length as well, the patcher reads on.
    {"chunks",
     OK "Transfer-Encoding: chunked\r\n{$L|$L|$L|}\r\n{||" ODD_CHUNK
        "}$s{||;x=y}\r\n$S{\r\n|\r\n|\r\n|}{||" ODD_CHUNK "}$e\r\n$E\r\n{0\r\n\r\n|0\r\n\r\n|}"},
    {"endless chunks",
     OK "Transfer-Encoding: chunked\r\n$L\r\n$N\r\n$B\r\n{|0\r\n}",
     {End::kClose},
     "{1\r\nx\r\n|0|X: y\r\n}"},
    {"early end", "$T", {End::kClose, End::kReset}},
    {"body", OK "$L\r\n{$R|$D|$D|$S|$B$M|$B$M|^$N(@)|$E$S|$S$R}"},
    {"endless body",
     "HTTP/1.1 {200|200|200|200|302} X\r\n{|" LOCATION "}{$L||Content-Length: 0\r\n|"
     "Content-Length: 2147483647\r\n|Transfer-Encoding: chunked\r\n|Content-Encoding: "
     "gzip\r\n}\r\n$B",
     {End::kClose},
     "^100($r)$M"},
    // What becomes of the connection that the next request expects to be open.
    {"broken off", "{$O|}", {End::kClose, End::kReset}},
    {"kept",
     "{" OK "Connection: close\r\n$L\r\n$B|$O" OK "Content-Length: 5\r\n\r\nwrong|$O$r|"
     "HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nKeep-Alive: timeout=0\r\n$L\r\n$B}",
     {End::kKeep}},
    {"stall", "$T", {End::kStall}},
};

// Cuts off the beginning of `text`, up to the first `end` outside of brackets, and that as well.
std::string_view TakeUntil(std::string_view& text, char end) {
  std::size_t length = 0;
  for (int depth = 0; length < text.size() && (depth > 0 || text[length] != end); ++length) {
    if (text[length] == '{' || text[length] == '(') ++depth;
    if (text[length] == '}' || text[length] == ')') --depth;
  }
  const std::string_view taken = text.substr(0, length);
  text.remove_prefix(std::min(length + 1, text.size()));
  return taken;
}

// One of the choices between bars.
std::string_view Choose(Random& random, std::string_view choices) {
  std::vector<std::string_view> all;
  for (bool more = true; more;) {
    const std::size_t before = choices.size();
    all.push_back(TakeUntil(choices, '|'));
    more = all.back().size() < before;
  }
  return random.Pick(all);
}

using Values = std::map<char, std::string>;

Values MakeValues(Random& random, const std::string& path, const std::string& body) {
  const std::size_t size = body.size();
  const std::string whole = Ok(body).bytes;
  const std::size_t split = random.Below(size);
  const std::size_t shown = random.Chance(30) ? whole.size() - size : whole.size();
  return {{'B', body},
          {'N', std::to_string(size)},
          {'L', "Content-Length: " + std::to_string(size) + "\r\n"},
          {'P', path},
          {'O', whole},
          {'T', whole.substr(0, random.Below(shown))},
          {'S', body.substr(0, split)},
          {'E', body.substr(split)},
          {'s', FormatText("%x", static_cast<unsigned>(split))},
          {'e', FormatText("%x", static_cast<unsigned>(size - split))},
          {'D', random.Damaged(body)},
          {'R', random.Bytes(size)},
          {'r', random.Bytes(random.Below(500))},
          {'M', random.Bytes(random.Pick<std::size_t>({1, 1000, 200000}))},
          {'w', std::to_string(random.Pick<std::size_t>({size - 1, size + 1, size / 2, size * 2}))},
          {'d', std::to_string(random.Below(10))}};
}

std::string Expand(Random& random, const Values& values, std::string_view pattern) {
  std::string text;
  while (!pattern.empty()) {
    const char c = pattern.front();
    pattern.remove_prefix(1);
    if (c == '{') {
      text += Expand(random, values, Choose(random, TakeUntil(pattern, '}')));
    } else if (c == '^') {
      const int count = ToNumber(Expand(random, values, TakeUntil(pattern, '(')));
      const std::string repeated = Expand(random, values, TakeUntil(pattern, ')'));
      for (int i = 0; i < count; ++i) text += repeated;
    } else if (c == '$') {
      text += values.at(pattern.front());
      pattern.remove_prefix(1);
    } else {
      text += c == '@' ? '\0' : c;
    }
  }
  return text;
}

}  // namespace

std::vector<std::string> HostileKinds() {
  std::vector<std::string> names;
  for (const Kind& kind : kKinds) names.emplace_back(kind.name);
  return names;
}

Reply HostileReply(const std::string& kind, Random& random, const std::string& path,
                   const std::string& body) {
  const auto found = std::ranges::find(kKinds, kind, &Kind::name);
  const Values values = MakeValues(random, path, body);
  return {Expand(random, values, found->bytes), random.Pick(found->ends),
          Expand(random, values, found->repeated)};
}

}  // namespace velmora::test
