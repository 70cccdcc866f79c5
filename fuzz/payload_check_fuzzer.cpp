// Any answer against any record: verify passes exactly what a naive check of the whole body passes,
// however the body is cut into chunks. Further lines of the input:
//   pieces N...       the body's chunks; the last size repeats
//   broken            the transfer breaks off after the body
#include "harness.h"
#include "publish/verify/payload_check.h"

namespace velmora::fuzz {
namespace {

using namespace publish;

using Sizes = std::vector<std::int32_t>;

DeliveryEnd Give(const Delivery& answer, const Sizes& pieces, Sink& sink) {
  ResponseHead head;
  head.status = ToNumber(answer.status);
  head.length = answer.length;
  if (!sink.TakeHead(head)) return DeliveryEnd::kUnwanted;
  std::size_t at = 0;
  for (std::size_t i = 0; at < answer.body.size(); ++i) {
    const std::int32_t wanted = pieces.empty() ? 0 : pieces[std::min(i, pieces.size() - 1)];
    const std::size_t left = answer.body.size() - at;
    const std::size_t count = wanted > 0 ? std::min(left, static_cast<std::size_t>(wanted)) : left;
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(answer.body.data()) + at;
    if (!sink.TakeBytes(bytes, count)) return DeliveryEnd::kUnwanted;
    at += count;
  }
  return answer.Has("broken") ? DeliveryEnd::kBroken : DeliveryEnd::kEnded;
}

std::vector<Problem> Check(const Delivery& answer, const Sizes& pieces) {
  return CheckPayload(answer.record, [&](Sink& sink) { return Give(answer, pieces, sink); });
}

// Whether nothing is wrong with the answer, for a record that nothing is wrong with.
bool IsNaivelyRight(const Delivery& answer, bool& hasTail) {
  const FileRecord& record = answer.record;
  if (static_cast<std::size_t>(ToNumber(record.transferSize)) != answer.body.size()) return false;
  if (DigestLike(record.transferHash, answer.body) != record.transferHash) return false;
  std::optional<std::string> content = answer.body;
  const auto listed = static_cast<std::size_t>(ToNumber(record.contentSize));
  if (record.compressed) {
    std::size_t used = 0;
    if (listed > (std::size_t{1} << 23)) return false;  // no body of an input holds that much
    content = Expanded(answer.body, listed, used);
    hasTail = content && used < answer.body.size();
  }
  return content && content->size() == listed &&
         DigestLike(record.contentHash, *content) == record.contentHash;
}

}  // namespace

void CheckInput(std::string_view input) {
  Delivery answer(input);
  const std::vector<Problem> problems = Check(answer, {});
  const std::vector<Problem> again = Check(answer, answer.Numbers("pieces"));
  Require(problems.size() <= 1 && again.size() == problems.size(), "at most one problem is told");
  Require(problems.empty() ||
              (problems[0].kind == again[0].kind && problems[0].isWarning == again[0].isWarning),
          "the chunks of a body don't matter");

  const bool isPassed = problems.empty() || problems[0].isWarning;
  const bool isWhole = ToNumber(answer.status) == 200 && !answer.Has("broken") && answer.length;
  Require(!isPassed || isWhole, "only a whole answer passes");
  if (!CheckRecord(answer.record).empty()) return;
  bool hasTail = false;
  const bool isRight = isWhole && IsNaivelyRight(answer, hasTail);
  const bool saysLength = answer.length == std::to_string(answer.body.size());
  Require(!isPassed || isRight, "what passes is right", answer.body);
  Require(isPassed || !isRight || !saysLength, "what is right passes", answer.body);
  Require(!isPassed || problems.empty() != hasTail, "bytes after a stream are warned of");
}

}  // namespace velmora::fuzz
