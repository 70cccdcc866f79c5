#include "publish/verify/verification.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <optional>
#include <set>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "base/text.h"
#include "engine/reference_list.h"
#include "publish/common/published_list.h"

namespace velmora::publish {
namespace {

using Records = std::vector<FileRecord>;

std::uint64_t TransferSize(const FileRecord& record) {
  return static_cast<std::uint64_t>(std::max(ToNumber(record.transferSize), 0));
}

// All records of the set but those that say the same again, the largest first: begun last, one of
// them would keep a single connection busy at the end.
Records WorkOf(const FileRecordSet& files) {
  Records records;
  std::set<std::tuple<std::string, bool, std::string, std::string, std::string, std::string>> seen;
  for (const FileRecord& record : files) {
    const bool isNew = seen.emplace(record.path, record.compressed, record.transferHash,
                                    record.transferSize, record.contentHash, record.contentSize)
                           .second;
    if (isNew) records.push_back(record);
  }
  std::stable_sort(records.begin(), records.end(), [](const FileRecord& a, const FileRecord& b) {
    return TransferSize(a) > TransferSize(b);
  });
  return records;
}

std::string ShownPath(const FileRecord& record) {
  return record.compressed ? record.path + std::string(kCompressedMark) : record.path;
}

// The work on one site. Its threads share it.
class SiteCheck {
 public:
  SiteCheck(const Site& site, const VerifyOptions& options) : site_(site), options_(options) {}

  SiteSummary Run();

 private:
  DeliveryEnd Fetch(const Source& source, const std::string& path, Receiver& receiver);
  std::optional<std::string> FetchList(const Source& source);
  void CheckList(const PublishedList& list);
  void CheckAll(const Records& records, Source first);
  void Work(const Records& records, const Source& source);
  bool CheckFile(const FileRecord& record, const Source& source);
  void CountFailure(bool failed, std::size_t total);
  void Report(const std::string& path, Problem problem);
  void Count(std::atomic<std::uint64_t> Progress::*figure, std::uint64_t count) const;
  [[nodiscard]] bool IsStopped() const { return options_.stop != nullptr && *options_.stop; }

  const Site& site_;
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
};

// Counts what comes on its way to another receiver, and ends the delivery when the work stops.
class WatchedReceiver : public Receiver {
 public:
  using TakeCount = std::function<bool(std::size_t count)>;

  WatchedReceiver(Receiver& receiver, TakeCount takeCount)
      : receiver_(receiver), takeCount_(std::move(takeCount)) {}
  bool TakeHead(const AnswerHead& head) override { return receiver_.TakeHead(head); }
  bool TakePiece(const std::uint8_t* bytes, std::size_t count) override {
    return takeCount_(count) && receiver_.TakePiece(bytes, count);
  }

 private:
  Receiver& receiver_;
  TakeCount takeCount_;
};

void SiteCheck::Count(std::atomic<std::uint64_t> Progress::*figure, std::uint64_t count) const {
  if (options_.progress != nullptr) options_.progress->*figure += count;
}

DeliveryEnd SiteCheck::Fetch(const Source& source, const std::string& path, Receiver& receiver) {
  ++requests_;
  WatchedReceiver watched(receiver, [this](std::size_t count) {
    bytes_ += count;
    Count(&Progress::bytes, count);
    return !IsStopped();
  });
  return source(path, watched);
}

void SiteCheck::Report(const std::string& path, Problem problem) {
  const std::lock_guard lock(mutex_);
  ++(problem.isWarning ? warnings_ : errors_);
  options_.found({site_.name, path, std::move(problem)});
}

// The list's text; nothing if patchers don't get it.
std::optional<std::string> SiteCheck::FetchList(const Source& source) {
  std::string text;
  AnswerCheck answer([&text](const std::uint8_t* bytes, std::size_t count) {
    text.append(reinterpret_cast<const char*>(bytes), count);
  });
  auto problem = answer.Result(Fetch(source, site_.listPath, answer));
  if (IsStopped()) return std::nullopt;
  if (!problem && answer.IsPage()) {
    problem = Problem{ProblemKind::kPage, "a page instead of the list"};
  }
  if (!problem) return text;
  Report(site_.listName, *std::move(problem));
  return std::nullopt;
}

void SiteCheck::CheckList(const PublishedList& list) {
  for (const std::string& line : list.refused) {
    const std::string shown = line.substr(0, line.find('\r'));
    Report(site_.listName,
           {ProblemKind::kList, "patchers refuse the line, a field is too long: " + shown});
  }
  if (!list.isReadWhole) {
    Report(site_.listName, {ProblemKind::kList,
                            "a line that is too long, or a zero byte, ends the list before its "
                            "end"});
  }
  if (list.files.Count() == 0) {
    Report(site_.listName, {ProblemKind::kList, "the list names no file", true});
  }
}

// False if nothing came of it but a failure of the site.
bool SiteCheck::CheckFile(const FileRecord& record, const Source& source) {
  const std::string shown = ShownPath(record);
  for (Problem& problem : CheckRecord(record)) Report(shown, std::move(problem));
  const auto path = site_.pathOf(record);
  if (!path) {
    Report(shown, {ProblemKind::kPathTooLong, "the path is too long for a request"});
    return true;
  }
  std::vector<Problem> problems =
      CheckPayload(record, [&](Receiver& receiver) { return Fetch(source, *path, receiver); });
  if (IsStopped()) return true;  // what is missing isn't the site's fault
  ++checked_;
  bool failed = false;
  for (Problem& problem : problems) {
    failed = problem.kind == ProblemKind::kUnreachable || problem.kind == ProblemKind::kBroken;
    Report(shown, std::move(problem));
  }
  return !failed;
}

void SiteCheck::CountFailure(bool failed, std::size_t total) {
  if (!failed) {
    failuresInARow_ = 0;
  } else if (++failuresInARow_ >= kMostFailuresInARow) {
    isGivenUp_ = true;
    next_ = total;
  }
}

void SiteCheck::Work(const Records& records, const Source& source) {
  for (std::size_t i = next_++; i < records.size() && !IsStopped(); i = next_++) {
    const bool succeeded = CheckFile(records[i], source);
    Count(&Progress::files, 1);
    CountFailure(!succeeded, records.size());
  }
}

// By as many threads as there are connections. The first of them goes on with the connection that
// brought the list, as a patcher does.
void SiteCheck::CheckAll(const Records& records, Source first) {
  std::exception_ptr failure;
  const auto guarded = [&](const std::function<Source()>& open) {
    try {
      Work(records, open());
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!failure) failure = std::current_exception();
      next_ = records.size();
    }
  };
  {
    const std::size_t wanted = std::min<std::size_t>(options_.connections, records.size());
    std::vector<std::jthread> others(std::max<std::size_t>(wanted, 1) - 1);
    try {
      for (std::jthread& other : others) {
        other = std::jthread([&] { guarded(site_.open); });
      }
    } catch (const std::system_error&) {
      // The system has no thread left to give: the work takes longer.
    }
    guarded([&first] { return first; });
  }
  if (failure) std::rethrow_exception(failure);
}

SiteSummary SiteCheck::Run() {
  SiteSummary summary;
  Source source = site_.open();
  if (const auto text = FetchList(source)) {
    const PublishedList list(*text);
    CheckList(list);
    const Records records = WorkOf(list.files);
    summary.files = records.size();
    Count(&Progress::bytesTotal, text->size());
    Count(&Progress::filesTotal, records.size());
    for (const FileRecord& record : records) Count(&Progress::bytesTotal, TransferSize(record));
    CheckAll(records, std::move(source));
    if (isGivenUp_) {
      Report(site_.listName,
             {ProblemKind::kGivenUp,
              "given up after " + std::to_string(kMostFailuresInARow) + " failures in a row, " +
                  std::to_string(records.size() - checked_) + " files unchecked"});
    }
  }
  summary.checked = checked_;
  summary.requests = requests_;
  summary.bytes = bytes_;
  summary.errors = errors_;
  summary.warnings = warnings_;
  summary.isStopped = IsStopped();
  return summary;
}

}  // namespace

SiteSummary VerifySite(const Site& site, const VerifyOptions& options) {
  return SiteCheck(site, options).Run();
}

}  // namespace velmora::publish
