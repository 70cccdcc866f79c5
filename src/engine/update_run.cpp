#include "engine/update_run.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "base/texts.h"
#include "engine/install.h"
#include "engine/record_set.h"
#include "engine/remove_pass.h"
#include "engine/server_connection.h"
#include "engine/update_pass.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "platform/dialog.h"
#include "platform/threads.h"
#include "settings/session_log.h"

namespace velmora {

std::atomic<std::uint32_t> UpdateState = kNotRunning;
std::atomic<std::uint32_t> RestartRequested = 0;
std::atomic<std::uint8_t> RecheckPending = 0;
std::atomic<std::int64_t> BytesAhead = kUnknownBytes;
platform::ThreadHandle WorkerHandle = 0;

namespace {

using platform::Control;
using platform::RunPhase;

// A lock and a condition instead of waiting on an atomic: where the system doesn't support that, as
// on Windows, the implementation of g++ 12 can lose a wake-up.
std::mutex phaseMutex;
std::condition_variable phaseChanged;
RunPhase phase = RunPhase::kNone;

void SetPhase(RunPhase next) {
  const std::lock_guard lock(phaseMutex);
  phase = next;
  phaseChanged.notify_all();
}

// The dialog's thread can wait for a worker that is saving: it asks nothing of that thread any
// more.
std::unique_lock<std::mutex> LockUnlessSaving() {
  std::unique_lock lock(phaseMutex);
  phaseChanged.wait(lock, [] { return phase != RunPhase::kSaving; });
  return lock;
}

bool ClaimWorker() {
  const auto lock = LockUnlessSaving();
  if (phase != RunPhase::kNone) return false;
  phase = RunPhase::kBusy;
  return true;
}

// A pass that ended early just returns false; the handler finds the reason in the state words.
constexpr int kPassEnded = 0;

void EnterPasses() {
  std::uint32_t expected = kNotRunning;
  UpdateState.compare_exchange_strong(expected, kRunning);
  BytesAhead = kUnknownBytes;
  platform::SetBarPosition(Control::kOverallBar, 0);
  // Before the button shows it, as it's no longer so before the button offers the next run.
  SetPhase(RunPhase::kUpdating);
  platform::EnableControl(Control::kUpdateButton, true);
  platform::SetButtonCaption(Control::kUpdateButton, texts::kCancelUpdateButton);
  if (UpdateSet.Count() == 0) {
    platform::MoveBarPosition(Control::kOverallBar, 1);
    return;
  }
  platform::SetBarRange(Control::kOverallBar, 0,
                        static_cast<std::int32_t>(UpdateSet.Count() + RemoveSet.Count()));
  platform::SetBarStep(Control::kOverallBar, 1);
}

void RunPasses() {
  if (!RemovePass(RemoveSet)) throw kPassEnded;
  if (!UpdatePass(UpdateSet)) throw kPassEnded;
  // Now, rather than when the cache is saved: from then on the dialog's buttons wait for the save.
  static_cast<void>(FlushInstalledFiles());

  LogMessage("GetMissingFile() : Update Completed.\n");
  platform::SetStatusText(texts::kCompleted);
  UpdateState = kEnded;
  platform::EnableControl(Control::kStartGameButton, true);
  if (RecheckPending.exchange(0) == 0) platform::EnableControl(Control::kRecheckButton, true);
}

// The files that the cache vouches for must reach the disk before the cache does.
void SaveCache() {
  if (!FlushInstalledFiles() && VerifyCache.Count() > 0) {
    LogMessage(
        "The disk may not have kept what was installed, so it isn't remembered as verified\n");
    VerifyCache.Clear();
  }
  SaveVerifyCache();
  EndInstalling();
}

void HandleEndedPass() {
  if (RestartRequested != 0) {
    platform::ShowMessageBox(texts::kPatcherUpdated, texts::kRestartCaption,
                             platform::kBoxInformation);
    platform::AskToClose();
  } else if (UpdateState == kCancelAsked) {
    LogMessage("GetMissingFile() : Update Cancelled by User\n");
    platform::SetStatusText(texts::kCancelled);
    UpdateState = kEnded;
  }
  platform::EnableControl(Control::kUpdateButton, false);
  CloseIfOpen(RequestHandle);
  CloseIfOpen(ConnectionHandle);
  CloseIfOpen(SessionHandle);
  SaveCache();
}

void CloseRun() {
  SetPhase(RunPhase::kBusy);
  platform::SetButtonCaption(Control::kUpdateButton, texts::kUpdateFilesButton);
  platform::EnableControl(Control::kUpdateButton, true);
  SetPhase(RunPhase::kSaving);
  CloseIfOpen(ConnectionHandle);
  CloseIfOpen(SessionHandle);
  SaveCache();
}

void FileUpdate() {
  platform::EnableControl(Control::kUpdateButton, false);
  DiscardUnfinishedFiles();
  LoadVerifyCache();
  if (ConnectServer()) {
    EnterPasses();
    try {
      RunPasses();
    } catch (const int) {
      HandleEndedPass();
    }
  }
  CloseRun();
  SetPhase(RunPhase::kNone);
}

}  // namespace

bool UpdateFiles() {
  if (!ClaimWorker()) return false;
  LogMessage("UpdateFiles : Entering FileUpdate Thread.\n");
  UpdateState = kNotRunning;
  platform::EnableControl(Control::kStartGameButton, false);
  if (RecheckPending != 0) platform::EnableControl(Control::kRecheckButton, false);
  platform::SetBarRange(Control::kOverallBar, 0, 1);
  platform::SetBarStep(Control::kOverallBar, 1);
  platform::SetBarPosition(Control::kOverallBar, 0);

  WorkerHandle = platform::StartThread(FileUpdate);
  if (WorkerHandle == 0) SetPhase(RunPhase::kNone);
  return WorkerHandle != 0;
}

RunPhase CurrentRunPhase() {
  const std::lock_guard lock(phaseMutex);
  return phase;
}

void WaitWhileSaving() { static_cast<void>(LockUnlessSaving()); }

void WaitForRunEnd() {
  std::unique_lock lock(phaseMutex);
  phaseChanged.wait(lock, [] { return phase == RunPhase::kNone; });
}

}  // namespace velmora
