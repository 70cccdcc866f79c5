// Any answer against any record: verify passes exactly what a naive check of the whole body passes,
// however the body is cut into pieces.
//
// Input: lines of the record and of the answer, an empty line, the body.
//   hash, size, content-hash, content-size   the record; "=" is what would be right
//   compressed        the record is compressed
//   pack              the body given is the content, served as a zlib stream
//   tail TEXT         follows the body
//   status, length    the answer's; 200 and the body's length if there is no such line
//   pieces N...       the body's pieces; the last size repeats
//   broken            the transfer breaks off behind the body
#include <algorithm>

#include "base/text.h"
#include "harness.h"
#include "publish/payload_check.h"

namespace velmora::fuzz {
namespace {

using namespace publish;

struct Answer {
  AnswerHead head;
  std::string body;
  bool isBroken = false;
};

std::string Or(const Parts& parts, std::string_view name, const std::string& right) {
  const std::string value = parts.Value(name);
  return value == "=" || !parts.Has(name) ? right : value;
}

Answer AnswerOf(const Parts& parts) {
  Answer answer;
  answer.body = (parts.Has("pack") ? Compressed(parts.Body()) : parts.Body()) + parts.Value("tail");
  answer.head.status = ToNumber(Or(parts, "status", "200"));
  if (parts.Value("length") != "none") {
    answer.head.length = Or(parts, "length", std::to_string(answer.body.size()));
  }
  answer.isBroken = parts.Has("broken");
  return answer;
}

FileRecord RecordOf(const Parts& parts, const Answer& answer) {
  const auto hash = [&](std::string_view name, const std::string& bytes) {
    const std::string value = parts.Value(name);
    return value == "md5" ? DigestLike(std::string(32, ' '), bytes)
                          : Or(parts, name, DigestLike("", bytes));
  };
  return {.path = "file",
          .transferHash = hash("hash", answer.body),
          .transferSize = Or(parts, "size", std::to_string(answer.body.size())),
          .contentHash = hash("content-hash", parts.Body()),
          .contentSize = Or(parts, "content-size", std::to_string(parts.Body().size())),
          .compressed = parts.Has("compressed")};
}

DeliveryEnd Give(const Answer& answer, const std::vector<std::int32_t>& pieces,
                 Receiver& receiver) {
  if (!receiver.TakeHead(answer.head)) return DeliveryEnd::kUnwanted;
  std::size_t at = 0;
  for (std::size_t i = 0; at < answer.body.size(); ++i) {
    const std::size_t left = answer.body.size() - at;
    const std::int32_t wanted = pieces.empty() ? 0 : pieces[std::min(i, pieces.size() - 1)];
    const std::size_t count =
        wanted > 0 ? std::min<std::size_t>(left, static_cast<std::size_t>(wanted)) : left;
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(answer.body.data()) + at;
    if (!receiver.TakePiece(bytes, count)) return DeliveryEnd::kUnwanted;
    at += count;
  }
  return answer.isBroken ? DeliveryEnd::kBroken : DeliveryEnd::kEnded;
}

std::vector<Problem> Check(const FileRecord& record, const Answer& answer,
                           const std::vector<std::int32_t>& pieces) {
  return CheckPayload(record, [&](Receiver& receiver) { return Give(answer, pieces, receiver); });
}

bool IsError(const Problem& problem) { return !problem.isWarning; }

// Whether nothing can be wrong with the answer, for a record that nothing is wrong with.
bool NaivelyRight(const FileRecord& record, const Answer& answer, bool& hasTail) {
  const std::string size = std::to_string(answer.body.size());
  if (answer.head.status != 200 || answer.isBroken || !answer.head.length) return false;
  // CheckRecord has seen to it that a size is a number.
  if (static_cast<std::size_t>(ToNumber(record.transferSize)) != answer.body.size()) return false;
  if (DigestLike(record.transferHash, answer.body) != record.transferHash) return false;
  std::string content = answer.body;
  const auto listed = static_cast<std::size_t>(ToNumber(record.contentSize));
  if (record.compressed) {
    std::size_t used = 0;
    if (listed > (std::size_t{1} << 23)) return false;  // no body of an input holds that much
    const auto expanded = Expanded(answer.body, listed, used);
    if (!expanded) return false;
    content = *expanded;
    hasTail = used < answer.body.size();
  }
  return content.size() == listed && DigestLike(record.contentHash, content) == record.contentHash;
}

void CheckVerdict(const FileRecord& record, const Answer& answer,
                  const std::vector<Problem>& problems) {
  Require(problems.size() <= 1, "at most one problem is told");
  const bool isPassed = std::none_of(problems.begin(), problems.end(), IsError);
  Require(!isPassed || (answer.head.status == 200 && !answer.isBroken && answer.head.length),
          "only a whole answer passes");
  if (!CheckRecord(record).empty()) return;
  bool hasTail = false;
  const bool isRight = NaivelyRight(record, answer, hasTail);
  const bool saysLength = answer.head.length == std::to_string(answer.body.size());
  Require(!isPassed || isRight, "what passes is right", answer.body);
  Require(isPassed || !isRight || !saysLength, "what is right passes", answer.body);
  Require(!isPassed || problems.empty() != hasTail, "bytes behind a stream are warned of");
}

void CheckSame(const std::vector<Problem>& a, const std::vector<Problem>& b) {
  const bool isSame = a.size() == b.size() &&
                      (a.empty() || (a[0].kind == b[0].kind && a[0].isWarning == b[0].isWarning));
  Require(isSame, "the pieces of a body don't matter",
          (a.empty() ? "none" : a[0].what) + " / " + (b.empty() ? "none" : b[0].what));
}

}  // namespace
}  // namespace velmora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora::fuzz;
  const Parts parts(TextOf(data, size));
  const Answer answer = AnswerOf(parts);
  const velmora::FileRecord record = RecordOf(parts, answer);
  const auto problems = Check(record, answer, {});
  CheckVerdict(record, answer, problems);
  CheckSame(problems, Check(record, answer, parts.Numbers("pieces")));
  return 0;
}
