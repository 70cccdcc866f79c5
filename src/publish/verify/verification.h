// Verifies that players will accept what a server offers: the list as their patcher reads it, and
// every file that it names. Fetches and checks them as the patcher does, and more thoroughly.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "publish/common/progress_line.h"
#include "publish/verify/origin.h"
#include "publish/verify/payload_check.h"

namespace velmora::publish {

struct Finding {
  std::string origin;  // Origin::name
  std::string path;    // the list's name, or a record's path with its mark; code page 932
  Problem problem;
};

struct VerifyOptions {
  unsigned connections = 8;  // at once, each with a thread; at least one
  // Set it to true to stop the work. Optional.
  const std::atomic<bool>* stop = nullptr;
  // Called for each finding as it is made, in no particular order, by one thread at a time.
  std::function<void(const Finding&)> found = [](const Finding&) {};
  // Kept up to date during the work. Optional.
  Progress* progress = nullptr;
};

struct VerifySummary {
  std::size_t files = 0;    // in the list
  std::size_t checked = 0;  // of those; fewer if the work stopped or was given up
  std::size_t requests = 0;
  std::uint64_t bytes = 0;  // of all bodies received
  std::size_t errors = 0;
  std::size_t warnings = 0;
  bool isStopped = false;
};

// An origin that fails this often in a row isn't asked any more: at ten seconds each, the rest of
// a large publication would take hours to fail.
inline constexpr std::size_t kMostFailuresInARow = 20;

// Whatever is wrong with the origin is a finding. Throws PublishError only if the digest service or
// zlib fails. Stopping takes as long as each connection's current read, up to the time-out of ten
// seconds if the server stalls. Needs memory for the list, and some buffers for each connection.
VerifySummary VerifyOrigin(const Origin& origin, const VerifyOptions& options);

}  // namespace velmora::publish
