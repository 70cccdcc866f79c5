// The proof that what stands on a server is what players will accept: the list as their patcher
// reads it, and every file that it names, fetched and checked as the patcher does and beyond.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "publish/verify/payload_check.h"
#include "publish/verify/progress_line.h"
#include "publish/verify/site.h"

namespace velmora::publish {

struct Finding {
  std::string site;  // Site::name
  std::string path;  // the list's own name, or a record's path with its mark; code page 932
  Problem problem;
};

struct VerifyOptions {
  unsigned connections = 8;  // at once, each with a thread; at least one
  // Becomes true when the work shall stop; may stay out.
  const std::atomic<bool>* stop = nullptr;
  // Gets each finding as it is made, in no order, by one thread at a time.
  std::function<void(const Finding&)> found = [](const Finding&) {};
  // Follows the work, if given.
  Progress* progress = nullptr;
};

struct SiteSummary {
  std::size_t files = 0;    // that the list names
  std::size_t checked = 0;  // of them; fewer if the site was given up, or the work stopped
  std::size_t requests = 0;
  std::uint64_t bytes = 0;  // of bodies that came
  std::size_t errors = 0;
  std::size_t warnings = 0;
  bool isStopped = false;
};

// A site that fails this often in a row isn't asked any more: at ten seconds each, the rest of a
// large publication would take hours to fail.
inline constexpr std::size_t kMostFailuresInARow = 20;

// Whatever is wrong with the site is a finding. Throws PublishError only when the digest service or
// zlib fails. When asked to stop, ends with the pieces that are under way; a server that stalls
// holds it up for the time-out of ten seconds at most. Memory: the list, and some buffers for each
// connection.
SiteSummary VerifySite(const Site& site, const VerifyOptions& options);

}  // namespace velmora::publish
