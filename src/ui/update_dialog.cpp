#include "ui/update_dialog.h"

#include "engine/update_run.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "settings/session_log.h"
#include "ui/information_pane.h"
#include "ui/launch_actions.h"

namespace velmora {
namespace {

using platform::Control;

constexpr int kServed = 0;
constexpr int kNotStarted = -1;
constexpr int kEndedByClose = 1;

void OnOpened() {
  if (!HasScreenshots()) platform::EnableControl(Control::kScreenshotsButton, false);
  if (!HasDxDiag()) platform::EnableControl(Control::kDirectXButton, false);
  platform::SetDialogIcon();
  const platform::PaneControl control = StartInformationPane();
  UpdateFiles();
  if (control != 0) platform::ReleasePaneControl(control);
}

int StartRun() { return UpdateFiles() ? kServed : kNotStarted; }

int CancelOrStartRun() {
  if (UpdateState != kRunning) return StartRun();
  platform::EnableControl(Control::kUpdateButton, false);
  // If the run has ended in the meantime, its outcome stays and the button starts the next run.
  std::uint32_t running = kRunning;
  if (!UpdateState.compare_exchange_strong(running, kCancelAsked)) {
    platform::EnableControl(Control::kUpdateButton, true);
  }
  return kServed;
}

int Recheck() {
  WaitWhileSaving();
  if (CurrentRunPhase() != platform::RunPhase::kNone) return kNotStarted;
  static_cast<void>(platform::RemoveFile(kCacheFile));
  RecheckPending = 1;
  return StartRun();
}

int OnCommand(int control) {
  switch (static_cast<Control>(control)) {
    case Control::kUpdateButton:
      return CancelOrStartRun();
    case Control::kRecheckButton:
      return Recheck();
    case Control::kStartGameButton:
      StartGame();
      return kServed;
    case Control::kOptionsButton:
      ExecOption();
      return kServed;
    case Control::kDirectXButton:
      ExecDxDiag();
      return kServed;
    case Control::kScreenshotsButton:
      ExecScreenshot();
      return kServed;
    default:
      return kServed;
  }
}

void OnClose() {
  LogMessage("Destroying Window : \n");
  platform::EndUpdateDialog(kEndedByClose);
  platform::DestroyHiddenWindow();
}

}  // namespace

platform::DialogHandlers UpdateDialogHandlers() {
  return {.opened = OnOpened,
          .command = OnCommand,
          .close = OnClose,
          .destroyed = CloseInformationPane,
          .runPhase = CurrentRunPhase,
          .bytesAhead = [] { return BytesAhead.load(); }};
}

}  // namespace velmora
