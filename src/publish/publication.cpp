#include "publish/publication.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <map>
#include <mutex>
#include <thread>

#include "engine/record_set.h"
#include "engine/reference_list.h"
#include "publish/new_file.h"
#include "publish/publish_error.h"

namespace velmora::publish {
namespace {

// Carries out `work(i)` for each i below `count` on all cores. The first failure stops the others
// between two pieces of work, and is thrown on.
template <typename Work>
void OnAllCores(std::size_t count, Work work) {
  std::atomic<std::size_t> next = 0;
  std::mutex mutex;
  std::exception_ptr failure;
  const auto worker = [&] {
    for (std::size_t i = next++; i < count; i = next++) {
      try {
        work(i);
      } catch (...) {
        const std::lock_guard lock(mutex);
        if (!failure) failure = std::current_exception();
        next = count;
      }
    }
  };
  std::vector<std::thread> others(std::max(1U, std::thread::hardware_concurrency()) - 1);
  for (std::thread& other : others) other = std::thread(worker);
  worker();
  for (std::thread& other : others) other.join();
  if (failure) std::rethrow_exception(failure);
}

bool IsPatchers(const FileRecord& record) {
  return record.path.find(kUpdateMarker) != std::string::npos;
}

// 0 for the game's files, 1 for the patcher's, 2 for its program.
int Rank(const FileRecord& record) {
  if (!IsPatchers(record)) return 0;
  return record.path.ends_with(".exe") ? 2 : 1;
}

std::string FileLine(const FileRecord& record) {
  std::string line = "FILE : " + record.path;
  if (record.compressed) line += kCompressedMark;
  for (const std::string* field :
       {&record.transferHash, &record.transferSize, &record.contentHash, &record.contentSize}) {
    line += ", ";
    line += *field;
  }
  return line;
}

std::string RemovalLine(const FileRecord& removal) {
  std::string line = "DEL : " + removal.path;
  if (!removal.transferHash.empty()) line += ", " + removal.transferHash;
  return line;
}

void AddLine(std::string& text, const std::string& line) {
  if (line.size() > kMaxListLine) throw PublishError("a line of the list is too long: " + line);
  text += line;
  text += '\n';
}

auto Fields(const FileRecord& record) {
  return std::tie(record.path, record.transferHash, record.transferSize, record.contentHash,
                  record.contentSize, record.compressed);
}

void RequireSame(const FileRecordSet& read, const std::vector<FileRecord>& intended,
                 const char* kind) {
  std::multimap<std::string, const FileRecord*> byPath;
  for (const FileRecord& record : intended) byPath.emplace(record.path, &record);
  bool same = read.Count() == intended.size();
  for (const FileRecord& record : read) {
    const auto found = byPath.find(record.path);
    same = same && found != byPath.end() && Fields(*found->second) == Fields(record);
    if (!same) break;
    byPath.erase(found);
  }
  if (!same)
    throw PublishError(std::string("a patcher would read other ") + kind + " from the list");
}

void RequireReadBack(const std::string& text, const std::vector<FileRecord>& records,
                     const std::vector<FileRecord>& removals, const std::string& clientExe) {
  FileRecordSet updateSet;
  FileRecordSet removeSet;
  std::string readExe;
  ParseReferenceList(text, updateSet, removeSet, readExe, [](std::string_view line) {
    throw PublishError("a patcher would refuse the line: " + std::string(line));
  });
  RequireSame(updateSet, records, "files");
  RequireSame(removeSet, removals, "removals");
  if (readExe != clientExe) throw PublishError("a patcher would start another program");

  const auto patchers = std::count_if(records.begin(), records.end(), IsPatchers);
  auto at = updateSet.begin();
  for (auto i = patchers; i > 0; --i, ++at) {
    if (!IsPatchers(*at)) throw PublishError("a patcher would not deal with itself first");
  }
}

}  // namespace

std::string ListText(const std::vector<FileRecord>& records,
                     const std::vector<FileRecord>& removals, const std::string& clientExe) {
  std::vector<const FileRecord*> ordered;
  ordered.reserve(records.size());
  for (const FileRecord& record : records) ordered.push_back(&record);
  std::stable_sort(ordered.begin(), ordered.end(),
                   [](const FileRecord* a, const FileRecord* b) { return Rank(*a) < Rank(*b); });
  std::string text;
  if (!clientExe.empty()) AddLine(text, "EXE : " + clientExe);
  for (const FileRecord& removal : removals) AddLine(text, RemovalLine(removal));
  for (const FileRecord* record : ordered) AddLine(text, FileLine(*record));
  RequireReadBack(text, records, removals, clientExe);
  return text;
}

BuildSummary BuildPublication(const BuildOptions& options) {
  const std::vector<SourceFile> files = ScanTree(options.tree);
  std::vector<FileRecord> records(files.size());
  OnAllCores(files.size(), [&](std::size_t i) {
    records[i] = WritePayload(files[i], options.output, options.payload);
  });

  const std::string text = ListText(records, options.removals, options.clientExe);
  NewFile list(options.output / options.listName);
  list.Write(text.data(), text.size());
  list.Publish();

  BuildSummary summary;
  summary.files = files.size();
  for (const FileRecord& record : records) {
    summary.compressed += record.compressed ? 1 : 0;
    summary.contentBytes += std::stoull(record.contentSize);
    summary.transferBytes += std::stoull(record.transferSize);
  }
  return summary;
}

}  // namespace velmora::publish
