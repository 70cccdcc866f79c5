// Payloads in a publication's folder that no list needs any more.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace velmora::publish {

struct PruneOptions {
  std::filesystem::path output;
  std::string listName = "hashlist.dat";
  std::vector<std::filesystem::path> keep;   // lists, or folders of publications
  std::vector<std::filesystem::path> spare;  // files and folders within `output`
  bool deletes = false;                      // otherwise nothing changes
  // Set to true, from any thread, to stop the work; may be null.
  const std::atomic<bool>* stop = nullptr;
};

struct NeedlessPayload {
  std::string path;  // relative to the folder, as PublicationRecord has it
  std::uintmax_t size = 0;
};

struct PruneSummary {
  std::vector<NeedlessPayload> needless;  // in the byte order of their paths
  std::uintmax_t bytes = 0;               // of all of these
  std::size_t kept = 0;                   // files that lists name
  std::size_t others = 0;                 // files that no build has recorded
};

// Finds, and removes if asked to, the files that builds have put into the folder `output` and that
// neither its own list names, nor one of `keep`, nor any other list in that folder. Then removes
// folders that are empty by that. Never touched: what no build has recorded, what begins with a
// dot or lies in such a folder, the redirection, links and special files.
//
// Throws PublishError if one of the lists names no file or isn't read to its end by patchers, if
// `spare` names what isn't there, and while a build is at work or is to be recovered.
PruneSummary Prune(const PruneOptions& options);

}  // namespace velmora::publish
