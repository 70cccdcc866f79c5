#include "publish/verify/verification.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "base/ascii.h"
#include "base/text.h"
#include "engine/reference_list.h"
#include "publish/common/parallel_for.h"
#include "publish/common/published_list.h"

namespace velmora::publish {
namespace {

using Records = std::vector<FileRecord>;

// All different records of the set, the largest first: a large file that is begun last would keep
// one connection busy while the others have nothing left to do.
Records RecordsToCheck(const FileRecordSet& files) {
  Records records;
  std::set<std::tuple<std::string, bool, std::string, std::string, std::string, std::string>> seen;
  for (const FileRecord& record : files) {
    const bool isNew = seen.emplace(record.path, record.compressed, record.transferHash,
                                    record.transferSize, record.contentHash, record.contentSize)
                           .second;
    if (isNew) records.push_back(record);
  }
  std::stable_sort(records.begin(), records.end(), [](const FileRecord& a, const FileRecord& b) {
    return ByteCount(a.transferSize) > ByteCount(b.transferSize);
  });
  return records;
}

std::string ShownPath(const FileRecord& record) {
  return record.compressed ? record.path + std::string(kCompressedMark) : record.path;
}

// The work on one origin. Its threads share it.
class Verification {
 public:
  Verification(const Origin& origin, const VerifyOptions& options)
      : origin_(origin), options_(options) {}

  VerifySummary Run();

 private:
  DeliveryEnd FetchFile(const Fetch& fetch, const std::string& path, Sink& sink,
                        std::string& redirectedTo);
  void ReportFetched(const std::string& path, Problem problem, const std::string& redirectedTo);
  void NoteRedirect(const std::string& path, const std::string& url);
  void ReportRedirects();
  std::optional<std::string> FetchList(const Fetch& fetch);
  void CheckList(const PublishedList& list);
  void CheckAll(const Records& records, const Fetch& first);
  void Work(const Records& records, const Fetch& fetch);
  bool CheckFile(const FileRecord& record, const Fetch& fetch);
  void CountFailure(bool failed, std::size_t total);
  void Report(const std::string& path, Problem problem);
  void Count(std::atomic<std::uint64_t> Progress::*figure, std::uint64_t count) const;
  [[nodiscard]] bool IsStopped() const { return options_.stop != nullptr && *options_.stop; }

  const Origin& origin_;
  const VerifyOptions& options_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<std::size_t> checked_ = 0;
  std::atomic<std::size_t> requests_ = 0;
  std::atomic<std::uint64_t> bytes_ = 0;
  std::atomic<std::size_t> failuresInARow_ = 0;
  std::atomic<bool> isGivenUp_ = false;
  std::mutex mutex_;  // of what follows
  std::size_t errors_ = 0;
  std::size_t warnings_ = 0;
  std::map<std::string, std::string> redirects_;  // where each path is redirected to
};

// Counts the bytes that it passes on to another sink, and ends the delivery when the work stops.
// Notes where the response comes from if the request was redirected.
class CountingSink : public Sink {
 public:
  using TakeCount = std::function<bool(std::size_t count)>;

  CountingSink(Sink& sink, std::string& redirectedTo, TakeCount takeCount)
      : sink_(sink), redirectedTo_(redirectedTo), takeCount_(std::move(takeCount)) {}
  bool TakeHead(const ResponseHead& head) override {
    redirectedTo_ = head.redirectedTo;
    return sink_.TakeHead(head);
  }
  bool TakeBytes(const std::uint8_t* bytes, std::size_t count) override {
    return takeCount_(count) && sink_.TakeBytes(bytes, count);
  }

 private:
  Sink& sink_;
  std::string& redirectedTo_;
  TakeCount takeCount_;
};

void Verification::Count(std::atomic<std::uint64_t> Progress::*figure, std::uint64_t count) const {
  if (options_.progress != nullptr) options_.progress->*figure += count;
}

DeliveryEnd Verification::FetchFile(const Fetch& fetch, const std::string& path, Sink& sink,
                                    std::string& redirectedTo) {
  ++requests_;
  CountingSink watched(sink, redirectedTo, [this](std::size_t count) {
    bytes_ += count;
    Count(&Progress::bytes, count);
    return !IsStopped();
  });
  return fetch(path, watched);
}

void Verification::Report(const std::string& path, Problem problem) {
  const std::lock_guard lock(mutex_);
  ++(problem.isWarning ? warnings_ : errors_);
  Count(&Progress::findings, 1);
  options_.found({origin_.name, path, std::move(problem)});
}

// A problem with what came, or didn't, for a request.
void Verification::ReportFetched(const std::string& path, Problem problem,
                                 const std::string& redirectedTo) {
  if (!redirectedTo.empty()) problem.what += "; redirected to " + redirectedTo;
  Report(path, std::move(problem));
}

void Verification::NoteRedirect(const std::string& path, const std::string& url) {
  if (url.empty()) return;
  const std::lock_guard lock(mutex_);
  redirects_.emplace(path, url);
}

// Once for all paths, since a server usually redirects every request of a location. Windows takes
// no way from HTTP to HTTPS unless a program asks for it, and patchers don't.
void Verification::ReportRedirects() {
  if (redirects_.empty()) return;
  const auto list = redirects_.find(origin_.listName);
  const auto& [path, url] = list != redirects_.end() ? *list : *redirects_.begin();
  const bool isHttps = std::any_of(redirects_.begin(), redirects_.end(), [](const auto& redirect) {
    return StartsWithoutCase(redirect.second, "https:");
  });
  const std::string count = std::to_string(redirects_.size());
  const std::string what =
      "redirected to " + url + (redirects_.size() > 1 ? " (one of " + count + " paths)" : "") +
      (isHttps ? "; patchers on Windows don't follow to https: offer the files by plain HTTP"
               : "; patchers follow, with one more request for each: give players the address "
                 "where it leads");
  Report(path, {ProblemKind::kMoved, what, !isHttps});
}

// The list's text; nothing if patchers can't get it.
std::optional<std::string> Verification::FetchList(const Fetch& fetch) {
  std::string text;
  ResponseCheck response([&text](const std::uint8_t* bytes, std::size_t count) {
    text.append(reinterpret_cast<const char*>(bytes), count);
  });
  std::string redirectedTo;
  auto problem = response.Result(FetchFile(fetch, origin_.listPath, response, redirectedTo));
  if (IsStopped()) return std::nullopt;
  if (!problem && response.IsPage()) {
    problem = Problem{ProblemKind::kPage, "a page instead of the list"};
  }
  // Whether it is compressed indeed is seen by what can be read.
  if (!problem && PublishedList(text).files.Count() == 0) problem = response.Encoding();
  if (problem) {
    ReportFetched(origin_.listName, *std::move(problem), redirectedTo);
    return std::nullopt;
  }
  NoteRedirect(origin_.listName, redirectedTo);
  return text;
}

void Verification::CheckList(const PublishedList& list) {
  for (const std::string& line : list.refused) {
    const std::string shown = line.substr(0, line.find('\r'));
    Report(origin_.listName,
           {ProblemKind::kList, "patchers refuse the line, a field is too long: " + shown});
  }
  if (!list.isReadWhole) {
    Report(origin_.listName, {ProblemKind::kList,
                              "a line that is too long, or a zero byte, ends the list before its "
                              "end"});
  }
  if (list.files.Count() == 0) {
    Report(origin_.listName, {ProblemKind::kList, "the list names no file", true});
  }
}

// Returns false if the origin failed to deliver the file.
bool Verification::CheckFile(const FileRecord& record, const Fetch& fetch) {
  const std::string shown = ShownPath(record);
  for (Problem& problem : CheckRecord(record)) Report(shown, std::move(problem));
  const auto path = origin_.pathOf(record);
  if (!path) {
    Report(shown, {ProblemKind::kPathTooLong, "the path is too long for a request"});
    return true;
  }
  std::string redirectedTo;
  std::vector<Problem> problems =
      CheckPayload(record, [&](Sink& sink) { return FetchFile(fetch, *path, sink, redirectedTo); });
  if (IsStopped()) return true;  // what is missing isn't the origin's fault
  ++checked_;
  bool failed = false;
  for (Problem& problem : problems) {
    failed = problem.kind == ProblemKind::kUnreachable || problem.kind == ProblemKind::kBroken;
    ReportFetched(shown, std::move(problem), redirectedTo);
  }
  NoteRedirect(shown, redirectedTo);
  return !failed;
}

void Verification::CountFailure(bool failed, std::size_t total) {
  if (!failed) {
    failuresInARow_ = 0;
  } else if (++failuresInARow_ >= kMostFailuresInARow) {
    isGivenUp_ = true;
    next_ = total;
  }
}

void Verification::Work(const Records& records, const Fetch& fetch) try {
  for (std::size_t i = next_++; i < records.size() && !IsStopped(); i = next_++) {
    const bool succeeded = CheckFile(records[i], fetch);
    Count(&Progress::files, 1);
    CountFailure(!succeeded, records.size());
  }
} catch (...) {
  next_ = records.size();  // the other threads stop as well
  throw;
}

// One thread for each connection. One of them continues with the connection that delivered the
// list, as a patcher does.
void Verification::CheckAll(const Records& records, const Fetch& first) {
  const auto workers = std::min<std::size_t>(options_.connections, records.size());
  ParallelFor(
      workers, [&](std::size_t i) { Work(records, i == 0 ? first : origin_.open()); }, workers);
}

VerifySummary Verification::Run() {
  VerifySummary summary;
  const Fetch fetch = origin_.open();
  if (const auto text = FetchList(fetch)) {
    const PublishedList list(*text);
    CheckList(list);
    const Records records = RecordsToCheck(list.files);
    summary.files = records.size();
    Count(&Progress::bytesTotal, text->size());
    Count(&Progress::filesTotal, records.size());
    for (const FileRecord& record : records)
      Count(&Progress::bytesTotal, ByteCount(record.transferSize));
    CheckAll(records, fetch);
    if (isGivenUp_) {
      Report(origin_.listName,
             {ProblemKind::kGivenUp,
              "given up after " + std::to_string(kMostFailuresInARow) + " failures in a row, " +
                  std::to_string(records.size() - checked_) + " files unchecked"});
    }
  }
  ReportRedirects();
  summary.checked = checked_;
  summary.requests = requests_;
  summary.bytes = bytes_;
  summary.errors = errors_;
  summary.warnings = warnings_;
  summary.isStopped = IsStopped();
  return summary;
}

}  // namespace

VerifySummary VerifyOrigin(const Origin& origin, const VerifyOptions& options) {
  return Verification(origin, options).Run();
}

}  // namespace velmora::publish
