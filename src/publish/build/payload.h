// The payloads, which are the files that the server offers, and their records in the list.
#pragma once

#include <atomic>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/build/source_tree.h"
#include "publish/build/zlib_blocks.h"
#include "publish/common/file_digest.h"
#include "publish/common/parallel_for.h"
#include "publish/common/progress_line.h"

namespace velmora::publish {

// Which files are compressed, among those whose name has room for the mark at its end.
enum class Compress {
  kAlways,  // every file that isn't empty, even one that doesn't get smaller
  kNever,
  kPays,  // every file that gets smaller by PayloadOptions::paysFrom
};

// The extensions of files that are compressed already, in lower case.
[[nodiscard]] std::set<std::string> CompressedTypes();

struct PayloadOptions {
  HashKind hash = HashKind::kSha1;
  Compress compress = Compress::kPays;
  // How hard to try, from kLeastEffort to kMostEffort (zlib_blocks.h). A publication is made once
  // and downloaded by everybody.
  int effort = kMostEffort;
  // The least saving, in percent from 0 to 99, that is worth the expansion on players' machines.
  unsigned paysFrom = 5;
  // With kPays, files with these extensions, in lower case, aren't even tried.
  std::set<std::string> plainTypes = CompressedTypes();
  // Set to true, from any thread, to stop the work; may be null.
  const std::atomic<bool>* stop = nullptr;
  // Threads that work at once, at least one. Nothing else depends on it.
  std::size_t jobs = CoreCount();
  // Counts what is done, in bytes of the tree; may be null.
  Progress* progress = nullptr;
};

// Throws PublishError if the options' `stop` is set.
void StopIfAsked(const PayloadOptions& options);

struct PayloadTask {
  const SourceFile* file;
  std::filesystem::path target;  // where its payload is written; empty: nowhere
};

// Reads the files, writes their payloads and returns their records, in the order of the tasks. A
// payload depends only on its file's content and path, on the options and on libdeflate. All
// threads work together on each large file, and one on each of the others. Needs up to 30 MiB of
// memory for each thread. Throws PublishError, also when asked to stop; complete payloads then
// remain.
[[nodiscard]] std::vector<FileRecord> WritePayloads(const std::vector<PayloadTask>& tasks,
                                                    const PayloadOptions& options);

}  // namespace velmora::publish
