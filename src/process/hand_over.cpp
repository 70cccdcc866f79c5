#include "process/hand_over.h"

#include <cstdint>
#include <string>

#include "base/ascii.h"
#include "base/texts.h"
#include "engine/server_connection.h"
#include "engine/update_run.h"
#include "engine/update_state.h"
#include "platform/dialog.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "process/command_line.h"
#include "settings/session_log.h"
#include "ui/update_dialog.h"

namespace velmora {
namespace {

constexpr std::size_t kLaunchDirectoryBuffer = 512;
constexpr char kInstalledPatcher[] = "VelmoraUpdate.exe";
constexpr char kMutexName[] = "VelmoraUpdate";

std::string LaunchDirectory() {
  return platform::ShortPath(platform::WorkingDirectory(kLaunchDirectoryBuffer),
                             kLaunchDirectoryBuffer);
}

void ShowAlreadyRunning() {
  platform::ShowStartBox(texts::kAlreadyRunning, texts::kErrorCaption, platform::kBoxError);
}

// Windows' texts end with a line break.
std::string SystemErrorLine(std::int32_t code) {
  return std::string(Trimmed(platform::SystemErrorText(code), "\r\n"));
}

int StartAsInstalled(const std::string& modulePath) {
  LogMessage("Execute : Copying Patcher( %s to %s).\n", modulePath.c_str(), kTemporaryCopy);
  if (!platform::CopyFileOver(modulePath, kTemporaryCopy)) {
    const std::int32_t error = platform::LastSystemError();
    LogMessage("Error CopyFile() : Already exists same application \n");
    // The cause may be another one: a folder that the player can't write to, or a full disk.
    LogMessage("Reason of the system : %d %s\n", error, SystemErrorLine(error).c_str());
    ShowAlreadyRunning();
    return 0;
  }
  const std::string directory = LaunchDirectory();
  InitSessionLog();
  platform::StartSuccessor(kTemporaryCopy, directory, ArgumentTail);
  LogMessage("Executing : %s\n", kTemporaryCopy);
  platform::CloseHiddenWindow();
  platform::PumpUntilQuit();
  return 0;
}

std::string TailToPassOn() {
  if (ArgumentTail.size() <= kMaxPassedTail) return ArgumentTail;
  std::string tail = WholeOptions(ArgumentTail, kMaxPassedTail);
  LogMessage("Options are too long to hand on, cut to : %s\n", tail.c_str());
  return tail;
}

int LaunchInstalled(const platform::NamedMutex& mutex) {
  const std::string directory = LaunchDirectory();
  const bool restart = RestartRequested != 0;
  const std::string parameters = (restart ? "/R " : "/C ") + TailToPassOn();
  LogMessage(restart ? "Execute : Execute patch again cause patcher was update.\n"
                     : "Execute : Cleaning temporary files.\n");
  if (mutex.handle != 0) platform::ReleaseNamedMutex(mutex);
  platform::StartSuccessor(kInstalledPatcher, directory, parameters);
  return restart ? kExitRestart : 0;
}

// The dialog and its runs. A player can close the dialog during a run; the worker then ends with
// the process. It is waited for only if all that is left is to save the cache, as it is after a
// request to restart. This spares the next start from hashing everything again.
void RunDialog() {
  platform::RunUpdateDialog(UpdateDialogHandlers());
  // A closed dialog has done this already, unless it couldn't be built or something else took the
  // quit message.
  platform::CloseHiddenWindow();
  platform::PumpUntilQuit();
  if (RestartRequested != 0) {
    WaitForRunEnd();
  } else {
    WaitWhileSaving();
  }
  if (WorkerHandle != 0) platform::CloseThreadHandle(WorkerHandle);
  CloseIfOpen(ConnectionHandle);
  CloseIfOpen(SessionHandle);
}

int RunAsTemporaryCopy() {
  const platform::NamedMutex mutex = platform::CreateNamedMutex(kMutexName);
  if (mutex.handle != 0 && mutex.alreadyExisted) {
    LogMessage("Detect CreateMutex() : Already exists same application \n");
    ShowAlreadyRunning();
  } else if (mutex.handle != 0) {
    RunDialog();
  }
  return LaunchInstalled(mutex);
}

}  // namespace

int RunByRole() {
  if (!platform::RegisterHiddenWindow()) return kExitNoWindow;
  platform::CreateHiddenWindow();
  const std::string modulePath = platform::ModulePath();
  if (modulePath.empty()) {
    LogMessage("Error ModulePath() : No path that can be used leads to the program \n");
    platform::ShowStartBox(texts::kNoUsablePath, texts::kErrorCaption, platform::kBoxError);
    return 0;
  }
  const bool isTemporaryCopy = platform::LastPathElement(modulePath).starts_with('_');
  return isTemporaryCopy ? RunAsTemporaryCopy() : StartAsInstalled(modulePath);
}

}  // namespace velmora
