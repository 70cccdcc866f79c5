// What is wrong with one response, or with one file of a publication, from a patcher's point of
// view.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/file_record.h"
#include "publish/verify/origin.h"

namespace velmora::publish {

enum class ProblemKind {
  kList,          // the list has a line that patchers refuse, or ends early for them
  kRecord,        // the record can't be right, whatever is served
  kPathTooLong,   // patchers can't request the file
  kMissing,       // 404, 410
  kStatus,        // any other status but 200; of a folder: it can't be read
  kUnreachable,   // no response
  kBroken,        // the transfer broke off
  kNoLength,      // no usable Content-Length
  kTruncated,     // fewer bytes than announced
  kLonger,        // more bytes than announced
  kPage,          // a web page instead of the file
  kStale,         // other bytes than the list's
  kDamaged,       // not a valid zlib stream
  kWrongContent,  // expands to something else than the list says
  kTrailing,      // bytes after the stream
  kEncoded,       // the server compresses what it sends
  kMoved,         // the server redirects requests
  kRedirection,   // a flaw of enable.cdn
  kGivenUp,       // the server fails again and again
};

// A word for programs, such as "wrong-content".
[[nodiscard]] const char* KindName(ProblemKind kind);

struct Problem {
  ProblemKind kind;
  std::string what;  // ASCII, apart from quotes from lists and responses
  bool isWarning = false;
};

// Whether the text begins like a web page.
[[nodiscard]] bool IsWebPage(std::string_view text);

// Follows a response and passes its body on, up to the announced length.
class ResponseCheck : public Sink {
 public:
  using TakeBody = std::function<void(const std::uint8_t* bytes, std::size_t count)>;

  explicit ResponseCheck(TakeBody take) : take_(std::move(take)) {}
  bool TakeHead(const ResponseHead& head) override;
  bool TakeBytes(const std::uint8_t* bytes, std::size_t count) override;

  // Why patchers would reject the response, whatever the body holds.
  [[nodiscard]] std::optional<Problem> Result(DeliveryEnd end) const;
  // The announced length in bytes, which is the body's length if Result has no problem.
  [[nodiscard]] std::int32_t Announced() const { return announced_.value_or(0); }
  [[nodiscard]] bool IsPage() const { return IsWebPage(start_); }
  // The Content-Encoding as a problem, if there is one: patchers take the bytes as they come.
  [[nodiscard]] std::optional<Problem> Encoding() const;
  [[nodiscard]] std::string EncodingLine() const;

 private:
  TakeBody take_;
  ResponseHead head_;
  std::optional<std::int32_t> announced_;
  std::uint64_t received_ = 0;
  std::string start_;
};

// What is wrong with a record by itself, without its file.
[[nodiscard]] std::vector<Problem> CheckRecord(const FileRecord& record);

// Calls `deliver` for the file and checks what comes against its record, apart from fields that
// CheckRecord complains about. Returns at most one problem: the cause rather than its consequences.
// Needs a fixed buffer, whatever the sizes. Throws PublishError if the digest service or zlib is
// unavailable.
using Deliver = std::function<DeliveryEnd(Sink& sink)>;
[[nodiscard]] std::vector<Problem> CheckPayload(const FileRecord& record, const Deliver& deliver);

}  // namespace velmora::publish
