// A publication: a folder that a web server offers as it is, with the reference list and, below it,
// what patchers download.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/payload.h"

namespace velmora::publish {

struct BuildOptions {
  std::filesystem::path tree;
  std::filesystem::path output;
  PayloadOptions payload;
  std::string listName = "hashlist.dat";
  std::string clientExe;             // empty: patchers keep the name they know
  std::vector<FileRecord> removals;  // path and mode
};

struct BuildSummary {
  std::size_t files = 0;
  std::size_t compressed = 0;
  std::uint64_t contentBytes = 0;
  std::uint64_t transferBytes = 0;
};

// Writes the payloads of all files of the tree, on all cores, and behind them the list, which
// appears at once: at no moment a list names what isn't there. The same tree gives the same bytes,
// on every run and machine. Throws PublishError; an earlier list then still stands.
BuildSummary BuildPublication(const BuildOptions& options);

// The text of a list. The patcher's own records stand last, and of them the program file, so that a
// patcher, which takes such records to the front as it meets them, deals with them first. Throws
// PublishError if the patcher's own parser doesn't read exactly these records from it.
[[nodiscard]] std::string ListText(const std::vector<FileRecord>& records,
                                   const std::vector<FileRecord>& removals,
                                   const std::string& clientExe);

}  // namespace velmora::publish
