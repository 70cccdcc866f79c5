#include "platform/posix/terminal_figures.h"

#include <cmath>

namespace velmora::platform::terminal {
namespace {

// The rate is that of the last seconds; one over less than half a second would jump about.
constexpr double kRateWindow = 3.0;
constexpr double kShortestForRate = 0.5;
constexpr double kShortestForTimeLeft = 2.0;

// Files that are there and turn out to be good take a time that tells nothing of downloads, nor do
// downloads tell how many more of the files behind them will be good.
constexpr double kShareOfDownloads = 0.9;

std::int64_t Left(const Progress& progress) { return progress.fileLeft + *progress.ahead; }

std::optional<std::int64_t> Rounded(std::optional<double> value) {
  if (!value) return std::nullopt;
  return std::llround(*value);
}

}  // namespace

Figures FigureKeeper::Update(bool isRunShown, const Progress& progress) {
  if (!isRunShown) {
    samples_.clear();
    start_.reset();
    return {};
  }
  const std::optional<double> rate = Rate(progress);
  return {Rounded(rate), Rounded(TimeLeft(progress, rate))};
}

std::optional<double> FigureKeeper::Rate(const Progress& progress) {
  samples_.push_back(progress);
  while (samples_.size() > 2 && samples_[1].now <= progress.now - kRateWindow) samples_.pop_front();

  const double elapsed = progress.now - samples_.front().now;
  const std::int64_t bytes = progress.received - samples_.front().received;
  if (elapsed < kShortestForRate || bytes <= 0) return std::nullopt;
  return static_cast<double>(bytes) / elapsed;
}

// The present file goes on at the present rate; those behind it take their time as those before
// did.
std::optional<double> FigureKeeper::TimeLeft(const Progress& progress, std::optional<double> rate) {
  if (!progress.ahead) return std::nullopt;
  if (!start_) start_ = progress;

  const double elapsed = progress.now - start_->now;
  const auto done = static_cast<double>(Left(*start_) - Left(progress));
  const auto received = static_cast<double>(progress.received - start_->received);
  const bool isTold = elapsed >= kShortestForTimeLeft && done > 0 && Left(progress) > 0;
  if (!isTold || received < done * kShareOfDownloads) return std::nullopt;

  const double ahead = elapsed * static_cast<double>(*progress.ahead) / done;
  if (progress.fileLeft == 0) return ahead;
  if (!rate) return std::nullopt;
  return static_cast<double>(progress.fileLeft) / *rate + ahead;
}

}  // namespace velmora::platform::terminal
