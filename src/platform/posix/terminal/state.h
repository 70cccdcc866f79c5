// What the dialog's thread and the worker share, and all that they say to each other. Every
// function may be called from any thread unless it says otherwise; none calls out with the lock
// held.
//
// Changes are taken at once and without waiting. They wake the dialog's thread when nothing was
// there to be drawn before, so that a million of them between two redraws cost one wake-up.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "platform/posix/terminal/lines.h"
#include "platform/posix/terminal/model.h"

namespace velmora::platform::terminal {

class DialogState {
 public:
  // What a redraw needs, as of one moment.
  struct Picture {
    DialogModel model;
    std::optional<BoxText> box;
  };

  // The life of the dialog; on its thread. Opening makes the calling thread the dialog's; false if
  // the system has no wake-up to give or if the dialog was open before. From `End` on, changes do
  // nothing. `Close` releases all who wait; it gives the number handed to `End`.
  [[nodiscard]] bool Open(bool reportsLines);
  void End(int result);
  int Close();
  [[nodiscard]] bool IsOpen();

  [[nodiscard]] bool IsDialogThread();

  // Has `change` applied to the model, if the dialog is open.
  template <typename ChangeOfModel>
  void Change(ChangeOfModel change) {
    const std::lock_guard lock(mutex_);
    if (phase_ != Phase::kOpen) return;
    change(model_);
    NoteChange();
  }

  // For threads that aren't the dialog's: wait until the box is answered, or until the close that
  // they ask for is carried out; and no longer than the dialog lives.
  void ShowBox(const BoxText& box);
  void AskToClose();

  // From here on: for the dialog's thread.

  // Readable when there is something new.
  [[nodiscard]] int wakeDescriptor() const { return wake_; }
  void ClearWake();

  // Puts up a box that the dialog's thread itself waits for.
  std::uint64_t PutUpBox(const BoxText& box);
  [[nodiscard]] bool IsAnswered(std::uint64_t box);
  // The box that stands. Boxes stand one after the other.
  [[nodiscard]] std::optional<BoxText> StandingBox();
  void AnswerBox();

  // A number to be handed to `CloseDone` when the close is carried out, once for each request.
  [[nodiscard]] std::optional<std::uint64_t> TakeCloseRequest();
  void CloseDone(std::uint64_t request);

  [[nodiscard]] bool HasChanged();
  void MarkChanged();
  [[nodiscard]] Picture TakePicture();
  void AddLine(std::string_view line);
  [[nodiscard]] std::string TakeLines();
  [[nodiscard]] bool IsEnabled(Control button);

 private:
  enum class Phase { kBefore, kOpen, kEnding, kClosed };

  void NoteChange();
  void Wake();

  std::mutex mutex_;
  std::condition_variable released_;
  Phase phase_ = Phase::kBefore;
  int result_ = -1;
  std::thread::id dialogThread_;
  int wake_ = -1;  // written once, before there is anybody else; never closed

  DialogModel model_;
  bool reportsLines_ = false;
  LineReport lines_;
  bool changed_ = false;

  std::deque<BoxText> boxes_;
  std::uint64_t boxesPutUp_ = 0;
  std::uint64_t boxesAnswered_ = 0;
  std::uint64_t closesAsked_ = 0;
  std::uint64_t closesTaken_ = 0;
  std::uint64_t closesDone_ = 0;
};

}  // namespace velmora::platform::terminal
