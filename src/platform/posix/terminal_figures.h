// What the block on a terminal tells beyond the controls: how fast bytes come in, and how long the
// run will still take. Fed at each redraw; the time is handed in, in seconds.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "platform/posix/terminal_model.h"

namespace velmora::platform::terminal {

// Empty: can't be told.
struct Figures {
  std::optional<std::int64_t> bytesPerSecond;
  std::optional<std::int64_t> secondsLeft;
};

class FigureKeeper {
 public:
  Figures Update(const DialogModel& model, double now);

 private:
  struct Sample {
    double time;
    std::int64_t bytes;
  };
  struct Start {
    double time;
    Bar bar;
  };

  std::optional<std::int64_t> Rate(std::int64_t received, double now);
  std::optional<std::int64_t> TimeLeft(const Bar& bar, double now);

  std::deque<Sample> samples_;
  std::optional<Start> start_;
  std::int32_t lastPosition_ = 0;
};

}  // namespace velmora::platform::terminal
