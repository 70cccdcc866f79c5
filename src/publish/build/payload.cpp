#include "publish/build/payload.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>

#include "engine/reference_list.h"
#include "engine/request_path.h"
#include "publish/build/new_file.h"
#include "publish/build/zlib_blocks.h"
#include "publish/common/list_path.h"
#include "publish/common/parallel_for.h"
#include "publish/common/publish_error.h"
#include "publish/common/sized_reader.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kChunk = std::size_t{1} << 18;

// A larger file is compressed in blocks of kBlockSize, by all cores together; any other is one
// block. The blocks cost 0.05 % of the result.
constexpr std::uint64_t kMaxAlone = std::uint64_t{8} << 20;
constexpr std::size_t kBlockSize = std::size_t{1} << 20;

// Quickly compressed, these bytes at a file's beginning tell whether it is compressed data.
constexpr std::size_t kTrialSize = std::size_t{4} << 20;

constexpr std::size_t kBlocksPerThread = 4;

bool Pays(std::uint64_t packed, std::uint64_t size, unsigned percent) {
  return packed < size && packed * 100 <= size * (100 - percent);
}

void CountBytes(const PayloadOptions& options, std::size_t count) {
  if (options.progress != nullptr) options.progress->bytes += count;
}

void CountFile(const PayloadOptions& options) {
  if (options.progress != nullptr) ++options.progress->files;
}

// Turns one file into a zlib stream, in rounds of blocks. While the blocks of one round are
// deflated side by side, the next round is read and the previous one written.
class StreamWriter {
 public:
  StreamWriter(const PayloadTask& task, const PayloadOptions& options, std::size_t threads)
      : options_(options),
        threads_(threads),
        size_(task.file->size),
        blockSize_(size_ > kMaxAlone ? kBlockSize : static_cast<std::size_t>(size_)),
        reader_(task.file->path, task.file->size),
        stream_(task.target),
        content_(options.hash),
        transfer_(options.hash) {}

  // Writes the stream and completes the record. Returns false if compression doesn't pay.
  bool Write(FileRecord& record);

 private:
  struct Round {
    std::vector<std::uint8_t> content;
    bool isLast = false;
    std::vector<DeflatedBlock> blocks;
  };

  [[nodiscard]] Round Read();
  void DeflateBlock(Round& round, std::size_t number) const;
  void Append(const Round& round);
  void Append(std::span<const std::uint8_t> bytes);
  [[nodiscard]] bool FailsTrial(const Round& first) const;
  bool GiveUp();

  const PayloadOptions& options_;
  const std::size_t threads_;
  const std::uint64_t size_;
  const std::size_t blockSize_;
  SizedReader reader_;
  NewFile stream_;
  FileDigest content_;
  FileDigest transfer_;
  StreamChecksum checksum_;
};

bool StreamWriter::Write(FileRecord& record) {
  Append(kStreamHeader);
  Round previous;
  Round current = Read();
  if (FailsTrial(current)) return GiveUp();
  while (!current.blocks.empty()) {
    StopIfAsked(options_);
    Round next;
    const auto work = [&](std::size_t i) {
      if (i == 0) next = Read();
      if (i == 1) Append(previous);
      if (i >= 2) DeflateBlock(current, i - 2);
    };
    ParallelFor(current.blocks.size() + 2, work, threads_);
    previous = std::move(current);
    current = std::move(next);
  }
  Append(previous);
  Append(checksum_.Trailer());
  if (options_.compress == Compress::kPays && !Pays(stream_.size(), size_, options_.paysFrom)) {
    return GiveUp();
  }
  stream_.Commit();
  record.contentHash = content_.Text();
  record.transferHash = transfer_.Text();
  record.transferSize = std::to_string(stream_.size());
  record.compressed = true;
  return true;
}

// The first round of a large file is at least what the trial looks at.
StreamWriter::Round StreamWriter::Read() {
  const std::size_t most = std::max(blockSize_ * kBlocksPerThread * threads_, kTrialSize);
  Round round;
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(most, reader_.left()));
  if (count == 0) return round;
  round.content.resize(count);
  content_.Add(round.content.data(), reader_.Read(round.content.data(), count));
  CountBytes(options_, count);
  round.isLast = reader_.left() == 0;
  round.blocks.resize((count + blockSize_ - 1) / blockSize_);
  return round;
}

bool StreamWriter::FailsTrial(const Round& first) const {
  if (options_.compress != Compress::kPays) return false;
  const std::span content(first.content);
  const std::span start = content.first(std::min(content.size(), kTrialSize));
  return QuickDeflatedSize(start) >= start.size();
}

void StreamWriter::DeflateBlock(Round& round, std::size_t number) const {
  const std::span content(round.content);
  const std::size_t start = number * blockSize_;
  round.blocks[number] =
      Deflate(content.subspan(start, std::min(blockSize_, content.size() - start)), options_.effort,
              round.isLast && number + 1 == round.blocks.size());
}

void StreamWriter::Append(const Round& round) {
  for (const DeflatedBlock& block : round.blocks) {
    Append(block.bytes);
    checksum_.Add(block);
  }
}

void StreamWriter::Append(std::span<const std::uint8_t> bytes) {
  transfer_.Add(bytes.data(), bytes.size());
  stream_.Write(bytes.data(), bytes.size());
}

// The file has to be read once more.
bool StreamWriter::GiveUp() {
  if (options_.progress != nullptr) options_.progress->bytesTotal += size_ - reader_.left();
  return false;
}

void WritePlain(const PayloadTask& task, const PayloadOptions& options, FileRecord& record) {
  SizedReader reader(task.file->path, task.file->size);
  NewFile copy(task.target);
  FileDigest content(options.hash);
  std::vector<std::uint8_t> chunk(
      static_cast<std::size_t>(std::min<std::uint64_t>(kChunk, task.file->size)));
  do {
    StopIfAsked(options);
    const std::size_t count = reader.Read(chunk.data(), chunk.size());
    content.Add(chunk.data(), count);
    copy.Write(chunk.data(), count);
    CountBytes(options, count);
  } while (reader.left() > 0);
  copy.Commit();
  record.contentHash = record.transferHash = content.Text();
  record.transferSize = record.contentSize;
}

std::string Extension(const std::string& listPath) {
  const std::size_t dot = listPath.find_last_of(".\\/");
  if (dot == std::string::npos || listPath[dot] != '.') return {};
  return FoldedPath(listPath.substr(dot + 1));
}

// Whether the path with the mark fits the list, a patcher's request and the server's disk.
bool HasRoomForMark(const std::string& listPath) {
  constexpr std::size_t kMaxFileName = 255;  // bytes, on the usual file systems
  FileRecord record;
  record.path = listPath;
  record.compressed = true;
  const std::string served = ServedPath(listPath) + std::string(kCompressedMark);
  return served.size() <= kMaxListPath && served.size() - (served.rfind('/') + 1) <= kMaxFileName &&
         RequestPath("", record).has_value();
}

bool IsTried(const SourceFile& file, const PayloadOptions& options) {
  if (options.compress == Compress::kNever || file.size == 0) return false;
  if (options.compress == Compress::kPays &&
      options.plainTypes.contains(Extension(file.listPath))) {
    return false;
  }
  return HasRoomForMark(file.listPath);
}

// A task and where its result goes.
struct Job {
  const PayloadTask* task;
  FileRecord* record;
  bool isTried;
};

bool Compresses(const Job& job, const PayloadOptions& options, std::size_t threads) {
  return job.isTried && StreamWriter(*job.task, options, threads).Write(*job.record);
}

// The largest come first: started last, one of them would keep a single core busy at the end.
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
  std::vector<Job> others;
  for (Job job : JobsOf(tasks, options, records)) {
    const bool isLarge = job.isTried && job.task->file->size > kMaxAlone;
    if (isLarge && Compresses(job, options, options.jobs)) {
      CountFile(options);
      continue;
    }
    if (isLarge) job.isTried = false;
    others.push_back(job);
  }
  const auto write = [&](std::size_t i) {
    const Job& job = others[i];
    if (!Compresses(job, options, 1)) WritePlain(*job.task, options, *job.record);
    CountFile(options);
  };
  ParallelFor(others.size(), write, options.jobs);
  return records;
}

}  // namespace velmora::publish
