// What the block on a terminal tells beyond the controls: how fast bytes come in, and how long the
// run will still take. Fed at each redraw.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>

namespace velmora::platform::terminal {

// Empty: can't be told.
struct Figures {
  std::optional<std::int64_t> bytesPerSecond;
  std::optional<std::int64_t> fileSecondsLeft;  // of the present file
  std::optional<std::int64_t> secondsLeft;      // of the whole run
};

// How far a run has come, as of one moment.
struct Progress {
  double now = 0;             // seconds
  std::int64_t received = 0;  // bytes over the network, from any start
  // Bytes of the list's files: of the present one that are still to come, and behind it, without
  // those that need no work. Empty: nobody knows.
  std::int64_t fileLeft = 0;
  std::optional<std::int64_t> ahead;
};

class FigureKeeper {
 public:
  // Outside of a run there are no figures, and the next run starts anew.
  Figures Update(bool isRunShown, const Progress& progress);

 private:
  std::optional<std::int64_t> Rate(const Progress& progress);
  std::optional<double> TimeAhead(const Progress& progress);

  std::deque<Progress> samples_;
  std::optional<Progress> start_;  // since the work ahead is known
};

}  // namespace velmora::platform::terminal
