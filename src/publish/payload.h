// One file of a publication: what the server holds of it, and its record of the list.
#pragma once

#include <atomic>
#include <filesystem>

#include "engine/file_record.h"
#include "publish/file_digest.h"
#include "publish/source_tree.h"

namespace velmora::publish {

struct PayloadOptions {
  HashKind hash = HashKind::kSha1;
  // Compress each file that becomes smaller by a twentieth at least; a file that doesn't isn't
  // worth the expanding at every player's.
  bool compress = false;
  // Becomes true when the work shall stop; may stay out.
  const std::atomic<bool>* stop = nullptr;
};

// Reads the file, writes what the server holds of it to `target`, and gives its record, which also
// says whether that is compressed. Memory: a few fixed buffers, whatever the size. Any thread,
// several at once. Throws PublishError, also when asked to stop.
[[nodiscard]] FileRecord WritePayload(const SourceFile& file, const std::filesystem::path& target,
                                      const PayloadOptions& options);

}  // namespace velmora::publish
