#include "publish/verify/payload_check.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include "base/ascii.h"
#include "base/text.h"
#include "publish/common/file_digest.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"

namespace velmora::publish {
namespace {

// A useless body is read up to here, since a connection whose body isn't read is lost.
constexpr std::uint64_t kMaxUselessBody = std::uint64_t{1} << 16;

// How much of a body tells whether it is a web page.
constexpr std::size_t kPageStart = 256;

constexpr std::size_t kInflateBuffer = std::size_t{1} << 16;

constexpr std::int32_t kMaxSize = std::numeric_limits<std::int32_t>::max();

std::optional<std::int32_t> ParseSize(std::string_view text) {
  return ListedSize(Trimmed(text, kWhiteSpace));
}

// Computes the digest of some bytes, if the list has a valid hash text to compare it with.
class DigestCheck {
 public:
  explicit DigestCheck(std::string hash) : hash_(std::move(hash)) {
    if (const auto kind = ListedHash(hash_)) digest_.emplace(*kind);
  }
  void Add(const std::uint8_t* bytes, std::size_t count) {
    if (digest_) digest_->Add(bytes, count);
  }
  // The hash text of all bytes if it differs from the list's. To be called once.
  std::optional<std::string> Difference() {
    if (!digest_) return std::nullopt;
    std::string text = digest_->Text();
    return text == hash_ ? std::nullopt : std::optional(std::move(text));
  }

 private:
  std::string hash_;
  std::optional<FileDigest> digest_;
};

// Expands a zlib stream (RFC 1950) and checks the content without keeping it.
class Inflater {
 public:
  explicit Inflater(const FileRecord& record)
      : size_(ParseSize(record.contentSize)), content_(record.contentHash) {
    if (inflateInit(&stream_) != Z_OK) throw PublishError("the expansion can't be started");
  }
  ~Inflater() { inflateEnd(&stream_); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  void Add(const std::uint8_t* bytes, std::size_t count);
  std::optional<Problem> Result();

 private:
  enum class State { kWithin, kEnded, kDamaged, kTooMuch };

  State Step();
  std::optional<Problem> ContentProblem();

  std::optional<std::int32_t> size_;
  DigestCheck content_;
  z_stream stream_{};
  State state_ = State::kWithin;
  std::uint64_t produced_ = 0;
  std::uint64_t trailing_ = 0;  // bytes after the end of the stream
  std::unique_ptr<std::uint8_t[]> buffer_ =
      std::make_unique_for_overwrite<std::uint8_t[]>(kInflateBuffer);
};

void Inflater::Add(const std::uint8_t* bytes, std::size_t count) {
  stream_.next_in = const_cast<Bytef*>(bytes);
  stream_.avail_in = static_cast<uInt>(count);
  while (state_ == State::kWithin) {
    state_ = Step();
    if (stream_.avail_out > 0) break;
  }
  if (state_ == State::kEnded) trailing_ += stream_.avail_in;
}

Inflater::State Inflater::Step() {
  stream_.next_out = buffer_.get();
  stream_.avail_out = static_cast<uInt>(kInflateBuffer);
  const int result = inflate(&stream_, Z_NO_FLUSH);
  const std::size_t count = kInflateBuffer - stream_.avail_out;
  content_.Add(buffer_.get(), count);
  produced_ += count;
  if (produced_ > static_cast<std::uint64_t>(size_.value_or(kMaxSize))) return State::kTooMuch;
  if (result == Z_STREAM_END) return State::kEnded;
  return result == Z_OK || result == Z_BUF_ERROR ? State::kWithin : State::kDamaged;
}

std::optional<Problem> Inflater::ContentProblem() {
  const auto wrong = [](const std::string& what) {
    return Problem{ProblemKind::kWrongContent, "expands to " + what};
  };
  const std::string size = std::to_string(size_.value_or(kMaxSize));
  if (state_ == State::kTooMuch) return wrong("more than " + size + " bytes");
  if (size_ && produced_ != static_cast<std::uint64_t>(*size_)) {
    return wrong(std::to_string(produced_) + " bytes, the list says " + size);
  }
  const auto difference = content_.Difference();
  if (difference) return wrong("another content than the list's, of hash " + *difference);
  return std::nullopt;
}

std::optional<Problem> Inflater::Result() {
  if (state_ == State::kDamaged || state_ == State::kWithin) {
    return Problem{ProblemKind::kDamaged,
                   state_ == State::kDamaged
                       ? "damaged stream, after " + std::to_string(produced_) + " expanded bytes"
                       : "damaged stream, it has no end"};
  }
  if (auto problem = ContentProblem()) return problem;
  if (trailing_ == 0) return std::nullopt;
  return Problem{ProblemKind::kTrailing,
                 std::to_string(trailing_) + " bytes after the end of the stream", true};
}

Problem PageProblem() { return {ProblemKind::kPage, "a page instead of the file"}; }

std::optional<Problem> Difference(const FileRecord& record, const ResponseCheck& response,
                                  DigestCheck& transfer) {
  const auto hash = transfer.Difference();
  if (hash && response.IsPage()) return PageProblem();
  const auto size = ParseSize(record.transferSize);
  if (size && response.Announced() != *size) {
    return Problem{ProblemKind::kStale, "stale: its length is " +
                                            std::to_string(response.Announced()) +
                                            ", the list says " + std::to_string(*size)};
  }
  if (hash) return Problem{ProblemKind::kStale, "stale: its hash is " + *hash};
  return std::nullopt;
}

}  // namespace

const char* KindName(ProblemKind kind) {
  static constexpr std::array kNames = {
      "list",        "record", "path-too-long", "missing",       "status",
      "unreachable", "broken", "no-length",     "truncated",     "longer",
      "page",        "stale",  "damaged",       "wrong-content", "trailing",
      "encoded",     "moved",  "redirection",   "given-up",
  };
  static_assert(kNames.size() == static_cast<std::size_t>(ProblemKind::kGivenUp) + 1);
  return kNames[static_cast<std::size_t>(kind)];
}

bool ResponseCheck::TakeHead(const ResponseHead& head) {
  head_ = head;
  if (head.length) announced_ = ParseSize(*head.length);
  return head.status != 0;
}

bool ResponseCheck::TakeBytes(const std::uint8_t* bytes, std::size_t count) {
  received_ += count;
  if (start_.size() < kPageStart) {
    start_.append(reinterpret_cast<const char*>(bytes), std::min(count, kPageStart));
  }
  if (head_.status != 200 || !announced_) return received_ <= kMaxUselessBody;
  if (received_ > static_cast<std::uint64_t>(*announced_)) return false;
  take_(bytes, count);
  return true;
}

std::optional<Problem> ResponseCheck::Result(DeliveryEnd end) const {
  if (head_.status == 0) return Problem{ProblemKind::kUnreachable, head_.trouble};
  if (head_.status == 404 || head_.status == 410) return Problem{ProblemKind::kMissing, "missing"};
  if (head_.status != 200) {
    const std::string status = "status " + std::to_string(head_.status);
    return Problem{ProblemKind::kStatus, head_.trouble.empty() ? status : head_.trouble};
  }
  if (!announced_ && IsPage()) return PageProblem();
  if (!announced_ && Encoding()) return Encoding();
  if (!announced_) {
    return Problem{ProblemKind::kNoLength, head_.length
                                               ? "no usable Content-Length: " + *head_.length
                                               : "no Content-Length"};
  }
  const std::string count = std::to_string(received_);
  const std::string announced = std::to_string(*announced_);
  if (end == DeliveryEnd::kBroken || end == DeliveryEnd::kStalled) {
    return Problem{ProblemKind::kBroken,
                   "broken transfer, " + count + " of " + announced + " bytes came" +
                       (end == DeliveryEnd::kStalled ? ", then nothing for ten seconds" : "")};
  }
  const auto expected = static_cast<std::uint64_t>(*announced_);
  if (received_ > expected) {
    return Problem{ProblemKind::kLonger, "longer than the announced " + announced + " bytes"};
  }
  if (received_ < expected) {
    return Problem{ProblemKind::kTruncated,
                   "truncated, " + count + " of " + announced + " bytes came"};
  }
  return std::nullopt;
}

std::optional<Problem> ResponseCheck::Encoding() const {
  if (head_.encoding.empty() || EqualWithoutCase(head_.encoding, "identity")) return std::nullopt;
  return Problem{ProblemKind::kEncoded,
                 "the server compresses: " + EncodingLine() + "; turn that off for this location"};
}

std::string ResponseCheck::EncodingLine() const { return "Content-Encoding: " + head_.encoding; }

bool IsWebPage(std::string_view text) {
  text = Trimmed(WithoutByteOrderMark(text), kWhiteSpace);
  return StartsWithoutCase(text, "<!doctype html") || StartsWithoutCase(text, "<html");
}

std::vector<Problem> CheckRecord(const FileRecord& record) {
  std::vector<Problem> problems;
  const auto complain = [&problems](const std::string& what) {
    problems.push_back({ProblemKind::kRecord, what});
  };
  const auto checkHash = [&](const char* name, const std::string& hash) {
    if (!ListedHash(hash)) {
      complain(std::string("the list's ") + name + " hash \"" + hash + "\" is none");
    }
  };
  const auto checkSize = [&](const char* name, const std::string& size) {
    if (!ParseSize(size)) {
      complain(std::string("the list's ") + name + " size \"" + size + "\" is none");
    }
  };
  checkHash("transfer", record.transferHash);
  checkSize("transfer", record.transferSize);
  checkHash("content", record.contentHash);
  checkSize("content", record.contentSize);
  if (!problems.empty() || record.compressed) return problems;
  const bool isOneKind = ListedHash(record.transferHash) == ListedHash(record.contentHash);
  if (isOneKind && record.transferHash != record.contentHash) {
    complain("the list has two different hashes for what isn't compressed");
  }
  if (ParseSize(record.transferSize) != ParseSize(record.contentSize)) {
    complain("the list has two different sizes for what isn't compressed");
  }
  return problems;
}

std::vector<Problem> CheckPayload(const FileRecord& record, const Deliver& deliver) {
  DigestCheck transfer(record.transferHash);
  // Without compression one hash is enough, unless the list has one of each digest.
  const bool isOneEnough = record.compressed || record.contentHash == record.transferHash;
  DigestCheck content(isOneEnough ? "" : record.contentHash);
  std::optional<Inflater> inflater;
  if (record.compressed) inflater.emplace(record);
  ResponseCheck response([&](const std::uint8_t* bytes, std::size_t count) {
    transfer.Add(bytes, count);
    content.Add(bytes, count);
    if (inflater) inflater->Add(bytes, count);
  });
  auto problem = response.Result(deliver(response));
  if (!problem) problem = Difference(record, response, transfer);
  if (problem && problem->kind == ProblemKind::kStale && response.Encoding()) {
    problem = response.Encoding();
  }
  if (!problem && inflater) problem = inflater->Result();
  if (const auto hash = problem ? std::nullopt : content.Difference()) {
    problem = Problem{ProblemKind::kWrongContent, "wrong content, its hash is " + *hash};
  }
  if (problem) return {*std::move(problem)};
  if (!response.Encoding()) return {};
  return {{ProblemKind::kEncoded,
           "the file arrives as it is, but with " + response.EncodingLine() +
               ", which a proxy on the way may act on; turn that off for this location",
           true}};
}

}  // namespace velmora::publish
