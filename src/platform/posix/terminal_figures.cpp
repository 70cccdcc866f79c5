#include "platform/posix/terminal_figures.h"

#include <cmath>

namespace velmora::platform::terminal {
namespace {

// The rate is that of the last seconds; one over less than half a second would jump about.
constexpr double kRateWindow = 3.0;
constexpr double kShortestForRate = 0.5;
constexpr double kShortestForTimeLeft = 2.0;

bool IsSameRange(const Bar& a, const Bar& b) {
  return a.lowest == b.lowest && a.highest == b.highest;
}

}  // namespace

Figures FigureKeeper::Update(const DialogModel& model, double now) {
  if (!ShowsRun(model)) {
    samples_.clear();
    start_.reset();
    return {};
  }
  return {Rate(model.received.total(), now), TimeLeft(model.overallBar, now)};
}

std::optional<std::int64_t> FigureKeeper::Rate(std::int64_t received, double now) {
  samples_.push_back({now, received});
  while (samples_.size() > 2 && samples_[1].time <= now - kRateWindow) samples_.pop_front();

  const double elapsed = now - samples_.front().time;
  const std::int64_t bytes = received - samples_.front().bytes;
  if (elapsed < kShortestForRate || bytes <= 0) return std::nullopt;
  return static_cast<std::int64_t>(static_cast<double>(bytes) / elapsed);
}

std::optional<std::int64_t> FigureKeeper::TimeLeft(const Bar& bar, double now) {
  const bool startsAnew = !start_ || !IsSameRange(bar, start_->bar) || bar.position < lastPosition_;
  if (startsAnew) start_ = Start{now, bar};
  lastPosition_ = bar.position;

  const double elapsed = now - start_->time;
  const double done = static_cast<double>(std::int64_t{bar.position} - start_->bar.position);
  const double open = static_cast<double>(std::int64_t{bar.highest} - bar.position);
  if (elapsed < kShortestForTimeLeft || done <= 0 || open <= 0) return std::nullopt;
  return std::llround(elapsed * open / done);
}

}  // namespace velmora::platform::terminal
