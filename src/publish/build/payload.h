// What the server holds of a publication's files, and their records of the list.
#pragma once

#include <atomic>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/build/source_tree.h"
#include "publish/common/file_digest.h"

namespace velmora::publish {

// Which files are stored compressed, among those whose name has room for the mark behind it.
enum class Compress {
  kAlways,  // every file that isn't empty, even one that doesn't get smaller
  kNever,
  kPays,  // every file that gets smaller by PayloadOptions::paysFrom
};

// The extensions of files that are compressed already, in small letters.
[[nodiscard]] std::set<std::string> CompressedTypes();

struct PayloadOptions {
  HashKind hash = HashKind::kSha1;
  Compress compress = Compress::kPays;
  // Percent of its size, 0 to 99, that a file loses at least; one that loses less isn't worth the
  // expanding at every player's.
  unsigned paysFrom = 5;
  // Where it has to pay, files with these extensions aren't even tried. Small letters.
  std::set<std::string> plainTypes = CompressedTypes();
  // Becomes true when the work shall stop; may stay out.
  const std::atomic<bool>* stop = nullptr;
};

// Throws PublishError when the options' `stop` asks for it.
void StopIfAsked(const PayloadOptions& options);

struct PayloadTask {
  const SourceFile* file;
  std::filesystem::path target;  // where its payload is written
};

// Reads the files, writes what the server holds of them, and gives their records in the order of
// the tasks, which also say what is compressed. A file's payload depends on nothing but its
// content, its path, the options and zlib. All cores work: together on one large file, each by
// itself on small ones. Memory: a few MiB for each core, whatever the sizes. Throws PublishError,
// also when asked to stop; targets of complete payloads remain then.
[[nodiscard]] std::vector<FileRecord> WritePayloads(const std::vector<PayloadTask>& tasks,
                                                    const PayloadOptions& options);

}  // namespace velmora::publish
