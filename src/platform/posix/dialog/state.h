// What the dialog's thread and the worker share, and how they wait for each other. Any thread may
// call these functions unless a comment says otherwise.
//
// A change is made at once. Only the first one after a redraw wakes the dialog's thread, so that a
// million changes between two redraws cost one wake-up.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "platform/posix/dialog/model.h"

namespace velmora::platform::dialog {

class DialogState {
 public:
  // What a redraw needs.
  struct Snapshot {
    DialogModel model;
    std::optional<BoxText> box;
  };

  // Called with the model after each change, by the thread that changes it and under the lock.
  using Observer = std::function<void(const DialogModel&)>;

  // For the dialog's thread, which is the one that calls `Open`. That returns false if the dialog
  // was open before or if the system fails. After `End`, changes have no effect. `Close` releases
  // all waiting threads and returns the result given to `End`.
  [[nodiscard]] bool Open(Observer observer = {});
  void End(int result);
  int Close();
  [[nodiscard]] bool IsOpen();

  [[nodiscard]] bool IsDialogThread();

  // Applies `change` to the model, under the lock, if the dialog is open.
  template <typename ChangeOfModel>
  void Change(ChangeOfModel change) {
    const std::lock_guard lock(mutex_);
    if (phase_ != Phase::kOpen) return;
    change(model_);
    NoteChange();
  }

  // For all other threads: wait until the box is answered, or until the dialog has carried out the
  // close, but no longer than the dialog lives.
  void ShowBox(const BoxText& box);
  void AskToClose();

  // The rest is for the dialog's thread.

  // Readable when there is something new.
  [[nodiscard]] int wakeDescriptor() const { return wake_; }
  void ClearWake();

  // Adds a box that the dialog's thread itself waits for, and returns its number.
  std::uint64_t AddBox(const BoxText& box);
  [[nodiscard]] bool IsAnswered(std::uint64_t box);
  // The box on show. Boxes are shown one after the other.
  [[nodiscard]] std::optional<BoxText> CurrentBox();
  void AnswerBox();

  // Returns each request once, as the number for `CloseDone` after the close.
  [[nodiscard]] std::optional<std::uint64_t> TakeCloseRequest();
  void CloseDone(std::uint64_t request);

  [[nodiscard]] bool HasChanged();
  void MarkChanged();
  [[nodiscard]] Snapshot TakeSnapshot();
  // Has `show`, which runs under the lock as the observer does, show the changes so far.
  template <typename ShowModel>
  void Show(ShowModel show) {
    const std::lock_guard lock(mutex_);
    changed_ = false;
    show(std::as_const(model_));
  }
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
  int wake_ = -1;  // set before other threads start; never closed

  DialogModel model_;
  Observer observer_;
  bool changed_ = false;

  std::deque<BoxText> boxes_;
  std::uint64_t boxesAdded_ = 0;
  std::uint64_t boxesAnswered_ = 0;
  std::uint64_t closesAsked_ = 0;
  std::uint64_t closesTaken_ = 0;
  std::uint64_t closesDone_ = 0;
};

}  // namespace velmora::platform::dialog
