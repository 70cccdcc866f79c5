// The way back from a publication that turned out to be bad: an earlier one's files, in a new list.
//
// The earlier list itself won't do. It doesn't remove what players have from the bad one. And a
// patcher that was ended in the middle of the update to the bad one may have files of it, but still
// remember those of the earlier list, so that it takes them for good. So the new list spells the
// size of every file that the bad publication changed with a zero more (size_spelling.h), and
// patchers read these files again.
#pragma once

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "publish/build/changes.h"

namespace velmora::publish {

struct RollbackOptions {
  std::filesystem::path earlier;  // the folder of the publication whose files come back
  // All that players may have got since then: lists, or folders of publications.
  std::vector<std::filesystem::path> from;
  std::filesystem::path output;  // may be one of `from`
  std::string listName = "hashlist.dat";
  std::string redirection;       // as in BuildOptions
  bool takesRedirection = true;  // the one that all these publications have
  // Set to true, from any thread, to stop the work; may be null.
  const std::atomic<bool>* stop = nullptr;
};

struct RollbackSummary {
  std::size_t files = 0;
  std::size_t reread = 0;       // files with one zero more
  std::size_t removals = 0;     // of the new list
  std::size_t notRepeated = 0;  // removals of `from` that it doesn't have
  Changes changes;              // since the last one of `from`
};

// Writes a publication with the earlier one's files and removals into `output`, and with removals
// of all files that only `from` have. Removals of `from` aren't repeated, because they may be the
// mistake, unless what they remove is in the way of the earlier files. The payloads are hard links
// to the earlier ones, or copies, and checked by their digests. Like BuildPublication, takes effect
// as a whole or not at all, and throws PublishError. A later build with the same settings can keep
// or reuse these payloads.
RollbackSummary RollBack(const RollbackOptions& options);

}  // namespace velmora::publish
