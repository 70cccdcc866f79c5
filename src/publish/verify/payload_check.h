// What is wrong with one answer, or with one file of a publication, from a patcher's point of view.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/verify/site.h"

namespace velmora::publish {

enum class ProblemKind {
  kList,          // the list has a line or an end that patchers refuse
  kRecord,        // the record can't be right, whatever is served
  kPathTooLong,   // patchers can't ask for the file
  kMissing,       // 404, 410
  kStatus,        // any other status but 200; of a folder: it can't be read
  kUnreachable,   // no answer
  kBroken,        // the transfer broke off
  kNoLength,      // no usable Content-Length
  kTruncated,     // fewer bytes than announced
  kLonger,        // more bytes than announced
  kPage,          // a web page instead of the file
  kStale,         // other bytes than the list's
  kDamaged,       // no sound zlib stream
  kWrongContent,  // expands to something else than the list says
  kTrailing,      // bytes behind the stream
  kGivenUp,       // the server fails again and again
};

// A word for programs, as in "wrong-content".
[[nodiscard]] const char* KindName(ProblemKind kind);

struct Problem {
  ProblemKind kind;
  std::string what;  // ASCII but for quotes from lists and answers
  bool isWarning = false;
};

// Follows an answer and passes its body on, up to the announced length.
class AnswerCheck : public Receiver {
 public:
  using TakeBody = std::function<void(const std::uint8_t* bytes, std::size_t count)>;

  explicit AnswerCheck(TakeBody take) : take_(std::move(take)) {}
  bool TakeHead(const AnswerHead& head) override;
  bool TakePiece(const std::uint8_t* bytes, std::size_t count) override;

  // What patchers wouldn't take, whatever the body holds.
  [[nodiscard]] std::optional<Problem> Result(DeliveryEnd end) const;
  // Announced length, in bytes; of an answer without a problem also the length of the body.
  [[nodiscard]] std::int32_t Announced() const { return announced_.value_or(0); }
  // Whether the body starts as a web page does.
  [[nodiscard]] bool IsPage() const;

 private:
  TakeBody take_;
  AnswerHead head_;
  std::optional<std::int32_t> announced_;
  std::uint64_t received_ = 0;
  std::string start_;
};

// What can be said of a record without its file. Empty if all is well.
[[nodiscard]] std::vector<Problem> CheckRecord(const FileRecord& record);

// Lets the file be delivered and checks it against its record; a field of the record that
// CheckRecord complains of is left aside. At most one error, which names the reason rather than
// what follows from it. Memory: a fixed buffer, whatever the sizes. Throws PublishError when the
// digest or zlib can't be had.
using Deliver = std::function<DeliveryEnd(Receiver& receiver)>;
[[nodiscard]] std::vector<Problem> CheckPayload(const FileRecord& record, const Deliver& deliver);

}  // namespace velmora::publish
