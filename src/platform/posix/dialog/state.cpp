#include "platform/posix/dialog/state.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>

namespace velmora::platform::dialog {

bool DialogState::Open(Observer observer) {
  const std::lock_guard lock(mutex_);
  if (phase_ != Phase::kBefore) return false;
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake_ < 0) return false;
  dialogThread_ = std::this_thread::get_id();
  changed_ = !observer;  // what is observed shows only what changes
  observer_ = std::move(observer);
  phase_ = Phase::kOpen;
  return true;
}

void DialogState::End(int result) {
  const std::lock_guard lock(mutex_);
  if (phase_ != Phase::kOpen) return;
  phase_ = Phase::kEnding;
  result_ = result;
}

int DialogState::Close() {
  const std::lock_guard lock(mutex_);
  phase_ = Phase::kClosed;
  boxes_.clear();
  released_.notify_all();
  return result_;
}

bool DialogState::IsOpen() {
  const std::lock_guard lock(mutex_);
  return phase_ == Phase::kOpen;
}

bool DialogState::IsDialogThread() {
  const std::lock_guard lock(mutex_);
  return dialogThread_ == std::this_thread::get_id();
}

void DialogState::ShowBox(const BoxText& box) {
  std::unique_lock lock(mutex_);
  if (phase_ != Phase::kOpen) return;
  boxes_.push_back(box);
  const std::uint64_t number = ++boxesAdded_;
  changed_ = true;
  Wake();
  released_.wait(lock, [&] { return boxesAnswered_ >= number || phase_ == Phase::kClosed; });
}

void DialogState::AskToClose() {
  std::unique_lock lock(mutex_);
  if (phase_ != Phase::kOpen) return;
  const std::uint64_t number = ++closesAsked_;
  Wake();
  released_.wait(lock, [&] { return closesDone_ >= number || phase_ == Phase::kClosed; });
}

void DialogState::ClearWake() {
  std::uint64_t count = 0;
  static_cast<void>(!read(wake_, &count, sizeof count));
}

std::uint64_t DialogState::AddBox(const BoxText& box) {
  const std::lock_guard lock(mutex_);
  boxes_.push_back(box);
  changed_ = true;
  Wake();
  return ++boxesAdded_;
}

bool DialogState::IsAnswered(std::uint64_t box) {
  const std::lock_guard lock(mutex_);
  return boxesAnswered_ >= box;
}

std::optional<BoxText> DialogState::CurrentBox() {
  const std::lock_guard lock(mutex_);
  if (boxes_.empty()) return std::nullopt;
  return boxes_.front();
}

void DialogState::AnswerBox() {
  const std::lock_guard lock(mutex_);
  if (boxes_.empty()) return;
  boxes_.pop_front();
  ++boxesAnswered_;
  changed_ = true;
  released_.notify_all();
}

std::optional<std::uint64_t> DialogState::TakeCloseRequest() {
  const std::lock_guard lock(mutex_);
  if (closesTaken_ == closesAsked_) return std::nullopt;
  closesTaken_ = closesAsked_;
  return closesTaken_;
}

void DialogState::CloseDone(std::uint64_t request) {
  const std::lock_guard lock(mutex_);
  closesDone_ = std::max(closesDone_, request);
  released_.notify_all();
}

bool DialogState::HasChanged() {
  const std::lock_guard lock(mutex_);
  return changed_;
}

void DialogState::MarkChanged() {
  const std::lock_guard lock(mutex_);
  changed_ = true;
}

DialogState::Snapshot DialogState::TakeSnapshot() {
  const std::lock_guard lock(mutex_);
  changed_ = false;
  Snapshot snapshot{model_, std::nullopt};
  if (!boxes_.empty()) snapshot.box = boxes_.front();
  return snapshot;
}

bool DialogState::IsEnabled(Control button) {
  const std::lock_guard lock(mutex_);
  return model_.FindButton(button)->enabled;
}

void DialogState::NoteChange() {
  if (observer_) observer_(model_);
  if (changed_) return;
  changed_ = true;
  Wake();
}

void DialogState::Wake() {
  const std::uint64_t one = 1;
  static_cast<void>(!write(wake_, &one, sizeof one));
}

}  // namespace velmora::platform::dialog
