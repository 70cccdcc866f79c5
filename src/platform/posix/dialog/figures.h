// What is shown beyond the dialog's controls: the download rate, and how long the run
// will still take. Updated at each redraw.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "platform/dialog.h"
#include "platform/posix/dialog/model.h"

namespace velmora::platform::dialog {

// Empty if unknown.
struct Figures {
  std::optional<std::int64_t> bytesPerSecond;
  std::optional<std::int64_t> fileSecondsLeft;  // of the current file
  std::optional<std::int64_t> secondsLeft;      // of the whole run
};

// How far a run has come, as of one moment.
struct Progress {
  double now = 0;                     // seconds
  std::int64_t received = 0;          // bytes from the network, counted from any point
  std::int64_t fileLeft = 0;          // bytes of the current file still to come
  std::optional<std::int64_t> ahead;  // bytes of the files after it that need work, if known
};

[[nodiscard]] Progress ProgressOf(const DialogModel& model, const DialogHandlers& handlers,
                                  double now);

// Whether a run was asked to stop and still goes on.
[[nodiscard]] bool CancelWaits(const DialogModel& model, const DialogHandlers& handlers);

class FigureKeeper {
 public:
  // Without a run there are no figures, and the next run starts afresh.
  Figures Update(bool isRunning, const Progress& progress);

 private:
  std::optional<std::int64_t> Rate(const Progress& progress);
  std::optional<double> TimeAhead(const Progress& progress);

  std::deque<Progress> samples_;
  std::optional<Progress> start_;  // when the work ahead became known
};

}  // namespace velmora::platform::dialog
