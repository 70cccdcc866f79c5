// A publication: a folder that a web server offers as it is, with the reference list and, below it,
// what patchers download.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/build/payload.h"

namespace velmora::publish {

struct BuildOptions {
  std::filesystem::path tree;
  std::filesystem::path output;
  PayloadOptions payload;
  std::string listName = "hashlist.dat";
  std::string clientExe;             // empty: patchers keep the name they know
  std::vector<FileRecord> removals;  // path and mode
  // A list, or the folder of a publication, whose players shall lose what is gone since. May be the
  // one in `output`. Empty: none.
  std::filesystem::path removeFrom;
  // Rules as ignore_rules.h describes them. Empty: those of the tree, if it has any.
  std::filesystem::path ignoreFile;
};

struct BuildSummary {
  std::size_t files = 0;
  std::size_t compressed = 0;
  std::uint64_t contentBytes = 0;
  std::uint64_t transferBytes = 0;
};

// Writes the payloads of all files of the tree, on all cores, and the list; when all of it is
// complete, gives the payloads their places and then the list, which appears at once: at no moment
// a list names what isn't there yet, not even after a power cut, since the disk has all of the
// payloads before the list takes its place, and the list before this function returns. (The whole
// file system is asked for that, three times: a sync of each file would take far longer.) Payloads
// whose files haven't changed since the publication that stands there stay untouched, provided that
// it was made with the same settings. The same tree gives the same bytes, on every run and machine
// that has the same zlib, whatever stood in `output`.
//
// Throws PublishError; what was published before then still stands as it was, unless the disk
// failed among those last steps.
BuildSummary BuildPublication(const BuildOptions& options);

}  // namespace velmora::publish
