#include "publish/common/progress_line.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "base/text.h"

namespace velmora::publish {
namespace {

constexpr std::chrono::milliseconds kPause(100);
constexpr double kSettled = 0.5;  // seconds after which a rate means something
constexpr std::size_t kBarCells = 16;
constexpr std::size_t kMaxCells = 79;

// By bytes, since files differ in size, or by files if all of them are empty.
double PartDone(const Progress& progress) {
  const bool hasBytes = progress.bytesTotal > 0;
  const auto done = static_cast<double>(hasBytes ? progress.bytes : progress.files);
  const auto total = static_cast<double>(hasBytes ? progress.bytesTotal : progress.filesTotal);
  return total > 0 ? std::min(done / total, 1.0) : 0;
}

std::string TimeText(double seconds) {
  const auto whole = static_cast<unsigned long>(std::min(seconds, 359999.0));
  if (whole < 3600) return FormatText("%lu:%02lu", whole / 60, whole % 60);
  return FormatText("%lu:%02lu:%02lu", whole / 3600, whole / 60 % 60, whole % 60);
}

// As wide as what else stands in the line allows.
std::string Bar(double part, std::size_t others) {
  constexpr std::size_t kFrame = 3;
  if (others + kFrame >= kMaxCells) return {};
  const std::size_t width = std::min(kBarCells, kMaxCells - others - kFrame);
  const auto cells = static_cast<std::size_t>(part * static_cast<double>(width));
  return "[" + std::string(cells, '#') + std::string(width - cells, '-') + "] ";
}

}  // namespace

void Progress::Begin(const char* name, std::uint64_t allFiles, std::uint64_t allBytes) {
  files = bytes = 0;
  filesTotal = allFiles;
  bytesTotal = allBytes;
  start = platform::TickCount();
  phase = name;
}

std::string ByteText(double bytes) {
  static constexpr std::array kUnits = {"kB", "MB", "GB", "TB"};
  std::size_t unit = 0;
  double figure = bytes / 1000;
  for (; figure >= 999.95 && unit + 1 < kUnits.size(); ++unit) figure /= 1000;
  return FormatText("%.1f %s", figure, kUnits[unit]);
}

std::string ProgressText(const Progress& progress, double seconds) {
  std::string phase = progress.phase.load();
  if (!phase.empty() && progress.filesTotal == 0) return phase;
  const double part = PartDone(progress);
  std::string text =
      std::to_string(progress.files) + "/" + std::to_string(progress.filesTotal) + " files, ";
  if (progress.findings > 0) text += std::to_string(progress.findings) + " findings, ";
  text += ByteText(static_cast<double>(progress.bytes));
  if (seconds >= kSettled) {
    text += ", " + ByteText(static_cast<double>(progress.bytes) / seconds) + "/s";
    if (part > 0) text += ", " + TimeText(seconds / part - seconds) + " left";
  }
  text = (phase.empty() ? "" : phase + " ") + Bar(part, phase.size() + 1 + text.size()) + text;
  if (text.size() > kMaxCells) text.resize(kMaxCells);
  return text;
}

struct ProgressLine::Drawing {
  explicit Drawing(const Progress& watched) : progress(watched) {}

  void Run(const std::stop_token& end);
  void Draw() const;

  const Progress& progress;
  std::mutex mutex;
  std::condition_variable_any ending;
  std::jthread thread;
};

void ProgressLine::Drawing::Draw() const {
  const double seconds = (platform::TickCount() - progress.start) / 1e3;
  std::fputs((kEraseLine + ProgressText(progress, seconds)).c_str(), stderr);
}

void ProgressLine::Drawing::Run(const std::stop_token& end) {
  std::unique_lock lock(mutex);
  do {
    Draw();
    ending.wait_for(lock, end, kPause, [] { return false; });
  } while (!end.stop_requested());
  std::fputs(kEraseLine, stderr);
}

ProgressLine::ProgressLine(const Progress& progress, bool shown) {
  if (!shown) return;
  drawing_ = std::make_unique<Drawing>(progress);
  drawing_->thread =
      std::jthread([drawing = drawing_.get()](const std::stop_token& end) { drawing->Run(end); });
}

ProgressLine::~ProgressLine() = default;

}  // namespace velmora::publish
