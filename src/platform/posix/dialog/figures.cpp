#include "platform/posix/dialog/figures.h"

#include <algorithm>
#include <cmath>

#include "platform/posix/transfer_count.h"

namespace velmora::platform::dialog {
namespace {

// In seconds. A rate measured over less than half a second would jump about.
constexpr double kRateWindow = 3.0;
constexpr double kShortestForRate = 0.5;
constexpr double kShortestForTimeLeft = 2.0;

// The time that good files take to check says nothing about downloads, and downloads don't say how
// many of the files ahead are good. So the work done must have been downloads almost entirely.
constexpr double kShareOfDownloads = 0.9;

std::int64_t Left(const Progress& progress) { return progress.fileLeft + *progress.ahead; }

// Whatever is left takes at least a second.
std::optional<std::int64_t> Seconds(std::optional<double> time) {
  if (!time) return std::nullopt;
  return std::max(std::llround(*time), 1LL);
}

std::optional<double> FileTimeLeft(const Progress& progress, std::optional<std::int64_t> rate) {
  if (!rate || progress.fileLeft == 0) return std::nullopt;
  return static_cast<double>(progress.fileLeft) / static_cast<double>(*rate);
}

}  // namespace

Progress ProgressOf(const DialogModel& model, const DialogHandlers& handlers, double now) {
  Progress progress;
  progress.now = now;
  progress.received = bodyBytesReceived;
  progress.fileLeft = RestOfFile(model);
  const std::int64_t ahead = handlers.bytesAhead();
  // A cancelled run won't do the work ahead.
  if (ahead >= 0 && !CancelWaits(model, handlers)) progress.ahead = ahead;
  return progress;
}

bool CancelWaits(const DialogModel& model, const DialogHandlers& handlers) {
  return handlers.runPhase() == RunPhase::kUpdating &&
         !model.FindButton(Control::kUpdateButton)->enabled;
}

Figures FigureKeeper::Update(bool isRunning, const Progress& progress) {
  if (!isRunning) {
    samples_.clear();
    start_.reset();
    return {};
  }
  const std::optional<std::int64_t> rate = Rate(progress);
  const std::optional<double> file = FileTimeLeft(progress, rate);
  const std::optional<double> ahead = TimeAhead(progress);
  std::optional<double> all;
  if (ahead && file) all = *file + *ahead;
  if (progress.fileLeft == 0) all = ahead;
  return {rate, Seconds(file), Seconds(all)};
}

std::optional<std::int64_t> FigureKeeper::Rate(const Progress& progress) {
  samples_.push_back(progress);
  while (samples_.size() > 2 && samples_[1].now <= progress.now - kRateWindow) samples_.pop_front();

  const double elapsed = progress.now - samples_.front().now;
  const std::int64_t bytes = progress.received - samples_.front().received;
  if (elapsed < kShortestForRate || bytes <= 0) return std::nullopt;
  const std::int64_t rate = std::llround(static_cast<double>(bytes) / elapsed);
  return rate > 0 ? std::optional(rate) : std::nullopt;
}

// The work after the current file is expected to go as fast as the work so far. Empty if nothing is
// left at all.
std::optional<double> FigureKeeper::TimeAhead(const Progress& progress) {
  if (!progress.ahead) return std::nullopt;
  if (!start_) start_ = progress;

  const double elapsed = progress.now - start_->now;
  const auto done = static_cast<double>(Left(*start_) - Left(progress));
  const auto received = static_cast<double>(progress.received - start_->received);
  const bool isKnown = elapsed >= kShortestForTimeLeft && done > 0 && Left(progress) > 0;
  if (!isKnown || received < done * kShareOfDownloads) return std::nullopt;
  return elapsed * static_cast<double>(*progress.ahead) / done;
}

}  // namespace velmora::platform::dialog
