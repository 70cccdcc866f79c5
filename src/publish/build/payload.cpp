#include "publish/build/payload.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "engine/reference_list.h"
#include "publish/build/staging.h"
#include "publish/build/zlib_blocks.h"
#include "publish/common/crew.h"
#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"
#include "publish/common/sized_reader.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPiece = std::size_t{1} << 18;

// A larger file is worked on by all cores.
constexpr std::uint64_t kAlone = 2 * kBlockSize;

// If so many blocks at its beginning don't get smaller at all, a file is taken for compressed data.
constexpr std::size_t kTrialBlocks = 4;

// Read and not yet written blocks that each core may have: one in hand, the others waiting for one
// in front of them.
constexpr unsigned kBlocksPerCore = 4;

// Keeps the number of blocks in memory within its limit.
class BlockBudget {
 public:
  struct GiveBack {
    void operator()(BlockBudget* budget) const {
      const std::lock_guard lock(budget->mutex_);
      ++budget->free_;
      budget->changed_.notify_one();
    }
  };
  // The right to hold one block, which goes back when this object goes.
  using Permit = std::unique_ptr<BlockBudget, GiveBack>;

  // Waits until there is one.
  [[nodiscard]] Permit Take() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return free_ > 0; });
    --free_;
    return Permit(this);
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  unsigned free_ = kBlocksPerCore * CrewSize();
};

// What the threads of one WritePayloads share.
struct Work {
  const PayloadOptions& options;
  Crew crew;
  BlockBudget budget;

  // Called between two pieces.
  void GoOn() const {
    StopIfAsked(options);
    if (crew.HasFailed()) throw PublishError("another file failed");
  }
};

bool Pays(std::uint64_t packed, std::uint64_t size, unsigned percent) {
  return packed < size && packed * 100 <= size * (100 - percent);
}

struct TakenBlock {
  BlockBudget::Permit permit;
  std::size_t number = 0;
  StreamBlock block;
};

// One file on its way into a zlib stream, by any number of threads: each takes the next block out
// of the file, deflates it, and delivers it; who delivers the block that is due writes it, with all
// that have been waiting behind it.
class StreamWriter {
 public:
  enum class Outcome {
    kOpen,        // not known to this thread, or not known yet
    kStored,      // the stream is written and the record complete
    kDoesNotPay,  // the target is gone again
  };

  StreamWriter(const PayloadTask& task, Work& work, FileRecord& record)
      : task_(task),
        work_(work),
        record_(record),
        content_(work.options.hash),
        transfer_(work.options.hash) {}

  // Works until no block is left to take. Exactly one of the threads gets the outcome. Nobody waits
  // here but for a permit, and each block that has one is either in the hands of a thread or
  // follows one that is: so permits come back.
  Outcome Help(BlockDeflater& deflater) {
    try {
      Outcome outcome = Outcome::kOpen;
      for (TakenBlock taken; outcome == Outcome::kOpen && Take(taken);) {
        deflater.Deflate(taken.block);
        outcome = Deliver(std::move(taken));
      }
      return outcome;
    } catch (...) {
      const std::lock_guard lock(writing_);
      Abandon();
      throw;
    }
  }

 private:
  bool Take(TakenBlock& taken) {
    const std::lock_guard lock(reading_);
    if (abandoned_ || (reader_ && reader_->left() == 0)) return false;
    work_.GoOn();
    taken.permit = work_.budget.Take();
    if (!reader_) reader_.emplace(task_.file->path, task_.file->size);
    taken.number = taken_++;
    taken.block = cutter_.Begin(
        static_cast<std::size_t>(std::min<std::uint64_t>(kBlockSize, reader_->left())));
    std::uint8_t* content = taken.block.bytes.data() + taken.block.known;
    content_.Add(content, reader_->Read(content, taken.block.contentSize()));
    taken.block.isLast = reader_->left() == 0;
    cutter_.End(taken.block);
    return true;
  }

  Outcome Deliver(TakenBlock taken) {
    const std::lock_guard lock(writing_);
    if (abandoned_) return Outcome::kOpen;
    waiting_.emplace(taken.number, std::move(taken));
    for (auto next = waiting_.find(due_); next != waiting_.end(); next = waiting_.find(due_)) {
      const TakenBlock block = std::move(next->second);
      waiting_.erase(next);
      Append(block.block);
      ++due_;
      if (block.block.isLast) return End();
      if (due_ == kTrialBlocks && work_.options.compress == Compress::kPays &&
          stream_->size() >= kTrialBlocks * kBlockSize) {
        return GiveUp();
      }
    }
    return Outcome::kOpen;
  }

  void Write(const void* bytes, std::size_t count) {
    transfer_.Add(bytes, count);
    stream_->Write(bytes, count);
  }

  void Append(const StreamBlock& block) {
    if (!stream_) {
      stream_.emplace(task_.target);
      Write(kStreamHead.data(), kStreamHead.size());
    }
    Write(block.packed.data(), block.packed.size());
    checksum_.Add(block);
  }

  Outcome End() {
    const auto tail = checksum_.Tail();
    Write(tail.data(), tail.size());
    if (work_.options.compress == Compress::kPays &&
        !Pays(stream_->size(), task_.file->size, work_.options.paysFrom)) {
      return GiveUp();
    }
    record_.contentHash = content_.Text();
    record_.transferHash = transfer_.Text();
    record_.transferSize = std::to_string(stream_->size());
    record_.compressed = true;
    stream_->Keep();
    stream_.reset();
    return Outcome::kStored;
  }

  Outcome GiveUp() {
    Abandon();
    return Outcome::kDoesNotPay;
  }

  // Blocks that others still have in hand go to nowhere.
  void Abandon() {
    abandoned_ = true;
    waiting_.clear();
    stream_.reset();
  }

  const PayloadTask& task_;
  Work& work_;
  FileRecord& record_;
  std::atomic<bool> abandoned_ = false;

  std::mutex reading_;  // over the next five, until the last block is read
  std::optional<SizedReader> reader_;
  std::size_t taken_ = 0;
  BlockCutter cutter_;
  FileDigest content_;

  std::mutex writing_;  // over the rest, and over record_
  std::map<std::size_t, TakenBlock> waiting_;
  std::size_t due_ = 0;
  std::optional<NewFile> stream_;
  StreamChecksum checksum_;
  FileDigest transfer_;
};

void WritePlain(const PayloadTask& task, const Work& work, FileRecord& record) {
  SizedReader reader(task.file->path, task.file->size);
  NewFile copy(task.target);
  FileDigest content(work.options.hash);
  std::vector<std::uint8_t> piece(
      static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, task.file->size)));
  do {
    work.GoOn();
    const std::size_t count = reader.Read(piece.data(), piece.size());
    content.Add(piece.data(), count);
    copy.Write(piece.data(), count);
  } while (reader.left() > 0);
  copy.Keep();
  record.contentHash = record.transferHash = content.Text();
  record.transferSize = record.contentSize;
}

std::string Extension(const std::string& listPath) {
  const std::size_t dot = listPath.find_last_of(".\\/");
  if (dot == std::string::npos || listPath[dot] != '.') return {};
  return PlayersPath(listPath.substr(dot + 1));
}

bool IsTried(const SourceFile& file, const PayloadOptions& options) {
  if (options.compress == Compress::kNever || file.size == 0) return false;
  if (options.compress == Compress::kPays &&
      options.plainTypes.contains(Extension(file.listPath))) {
    return false;
  }
  return CanBeAskedFor(file.listPath, kCompressedMark);
}

void HelpWith(StreamWriter& stream, const PayloadTask& task, const Work& work,
              BlockDeflater& deflater, FileRecord& record) {
  if (stream.Help(deflater) == StreamWriter::Outcome::kDoesNotPay) WritePlain(task, work, record);
}

// A task, with the place of its result.
struct Job {
  const PayloadTask* task;
  FileRecord* record;
  bool isTried;
};

void DoAlone(const Job& job, Work& work, BlockDeflater& deflater) {
  if (!job.isTried) {
    WritePlain(*job.task, work, *job.record);
    return;
  }
  StreamWriter stream(*job.task, work, *job.record);
  HelpWith(stream, *job.task, work, deflater, *job.record);
}

// The largest first: begun last, one of them would keep a single core busy at the end.
std::vector<Job> JobsOf(const std::vector<PayloadTask>& tasks, const PayloadOptions& options,
                        std::vector<FileRecord>& records) {
  std::vector<Job> jobs;
  jobs.reserve(tasks.size());
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    const SourceFile& file = *tasks[i].file;
    records[i].path = file.listPath;
    records[i].contentSize = std::to_string(file.size);
    jobs.push_back({&tasks[i], &records[i], IsTried(file, options)});
  }
  std::stable_sort(jobs.begin(), jobs.end(), [](const Job& a, const Job& b) {
    return a.task->file->size > b.task->file->size;
  });
  return jobs;
}

}  // namespace

std::set<std::string> CompressedTypes() {
  return {"7z",  "aac", "ac3",  "apk",   "arj",  "avi", "avif", "br",  "bz2", "cab",  "flac",
          "flv", "gif", "gz",   "heic",  "jar",  "jpe", "jpeg", "jpg", "jxl", "lha",  "lz",
          "lz4", "lzh", "lzma", "m4a",   "m4v",  "mka", "mkv",  "mov", "mp3", "mp4",  "mpeg",
          "mpg", "oga", "ogg",  "ogv",   "opus", "png", "rar",  "tgz", "txz", "webm", "webp",
          "wma", "wmv", "woff", "woff2", "xz",   "zip", "zst"};
}

void StopIfAsked(const PayloadOptions& options) {
  if (options.stop != nullptr && *options.stop)
    throw PublishError("stopped; nothing was published");
}

std::vector<FileRecord> WritePayloads(const std::vector<PayloadTask>& tasks,
                                      const PayloadOptions& options) {
  std::vector<FileRecord> records(tasks.size());
  Work work{options, {}, {}};
  std::vector<Job> jobs = JobsOf(tasks, options, records);
  const auto alone = std::stable_partition(jobs.begin(), jobs.end(), [](const Job& job) {
    return job.isTried && job.task->file->size > kAlone;
  });
  std::deque<StreamWriter> streams;
  for (auto job = jobs.begin(); job != alone; ++job) {
    streams.emplace_back(*job->task, work, *job->record);
  }
  std::atomic<std::size_t> next = streams.size();
  // A thread that finds nothing left to take in a large file goes on to the next, and behind them
  // to the others: none waits for the end of a file.
  work.crew.Run([&] {
    BlockDeflater deflater;
    for (std::size_t i = 0; i < streams.size(); ++i) {
      HelpWith(streams[i], *jobs[i].task, work, deflater, *jobs[i].record);
    }
    for (std::size_t i = next++; i < jobs.size(); i = next++) DoAlone(jobs[i], work, deflater);
  });
  return records;
}

}  // namespace velmora::publish
