#include "publish/publication.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <numeric>
#include <system_error>
#include <thread>

#include "engine/reference_list.h"
#include "publish/list_text.h"
#include "publish/publish_error.h"
#include "publish/staging.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// Carries out `work(i)` for each i of `order` on all cores. The first failure stops the others
// between two pieces of work, and is thrown on.
template <typename Work>
void OnAllCores(const std::vector<std::size_t>& order, Work work) {
  std::atomic<std::size_t> next = 0;
  std::mutex mutex;
  std::exception_ptr failure;
  const auto worker = [&] {
    for (std::size_t i = next++; i < order.size(); i = next++) {
      try {
        work(order[i]);
      } catch (...) {
        const std::lock_guard lock(mutex);
        if (!failure) failure = std::current_exception();
        next = order.size();
      }
    }
  };
  {
    std::vector<std::jthread> others(std::max(1U, std::thread::hardware_concurrency()) - 1);
    try {
      for (std::jthread& other : others) other = std::jthread(worker);
    } catch (const std::system_error&) {
      // The system has no thread left to give: the work takes longer.
    }
    worker();
  }
  if (failure) std::rethrow_exception(failure);
}

bool Holds(const fs::path& outer, const fs::path& inner) {
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

// Of two folders one within the other, the publication would publish itself or replace its source.
void RequireApart(const fs::path& tree, const fs::path& output) {
  const fs::path from = fs::weakly_canonical(tree);
  const fs::path to = fs::weakly_canonical(output);
  if (Holds(from, to) || Holds(to, from)) {
    throw PublishError("the tree and the publication must lie beside each other: " + from.native() +
                       ", " + to.native());
  }
}

void RequireListName(const std::string& name) {
  const bool isPlain =
      name.find_first_of("/\\") == std::string::npos && name != "." && name != "..";
  if (name.empty() || !isPlain || name.find(kCompressedMark) != std::string::npos) {
    throw PublishError("the list can't have the name \"" + name + "\"");
  }
}

// Where a file stands below the output, without its mark.
fs::path Place(const std::string& listPath) {
  return fs::path(ServedPath(listPath)).lexically_normal();
}

// The files of a tree can't meet each other below the output, but the list, and what is at work
// there.
void RequireOwnPlaces(const std::vector<SourceFile>& files, const std::string& listName) {
  for (const SourceFile& file : files) {
    const fs::path first = *Place(file.listPath).begin();
    if (first == listName || first == Staging::kFolder) {
      throw PublishError(file.path.native() + ": \"" + first.native() +
                         "\" is taken in the publication");
    }
  }
}

// The largest first: begun last, one of them would keep a single core busy at the end.
std::vector<std::size_t> WorkOrder(const std::vector<SourceFile>& files) {
  std::vector<std::size_t> order(files.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&files](std::size_t a, std::size_t b) {
    return files[a].size > files[b].size;
  });
  return order;
}

// The payload of the n-th file becomes the n-th of the staging folder.
std::vector<FileRecord> WritePayloads(const std::vector<SourceFile>& files, const Staging& staging,
                                      const PayloadOptions& options) {
  std::vector<FileRecord> records(files.size());
  OnAllCores(WorkOrder(files),
             [&](std::size_t i) { records[i] = WritePayload(files[i], staging.At(i), options); });
  return records;
}

void WriteList(const std::string& text, const fs::path& target) {
  NewFile list(target);
  list.Write(text.data(), text.size());
  list.Keep();
}

// The places of the records' files below `output`, in their order, and behind them the list's.
std::vector<fs::path> Targets(const std::vector<FileRecord>& records, const BuildOptions& options) {
  std::vector<fs::path> targets;
  targets.reserve(records.size() + 1);
  for (const FileRecord& record : records) {
    fs::path& target = targets.emplace_back(options.output / Place(record.path));
    if (record.compressed) target += kCompressedMark;
  }
  targets.push_back(options.output / options.listName);
  return targets;
}

void PublishAll(const Staging& staging, const std::vector<fs::path>& targets) {
  for (const fs::path& target : targets) staging.MakeRoom(target);
  for (std::size_t i = 0; i < targets.size(); ++i) staging.Publish(i, targets[i]);
}

BuildSummary Sum(const std::vector<FileRecord>& records) {
  BuildSummary summary;
  summary.files = records.size();
  for (const FileRecord& record : records) {
    summary.compressed += record.compressed ? 1 : 0;
    summary.contentBytes += std::stoull(record.contentSize);
    summary.transferBytes += std::stoull(record.transferSize);
  }
  return summary;
}

}  // namespace

BuildSummary BuildPublication(const BuildOptions& options) {
  RequireApart(options.tree, options.output);
  RequireListName(options.listName);
  // What the list can't say is refused before the long work begins.
  static_cast<void>(ListText({}, options.removals, options.clientExe));
  const std::vector<SourceFile> files = ScanTree(options.tree);
  RequireOwnPlaces(files, options.listName);

  const Staging staging(options.output);
  const std::vector<FileRecord> records = WritePayloads(files, staging, options.payload);
  WriteList(ListText(records, options.removals, options.clientExe), staging.At(records.size()));
  PublishAll(staging, Targets(records, options));
  return Sum(records);
}

}  // namespace velmora::publish
