#include "process/entry.h"

#include "base/texts.h"
#include "process/command_line.h"
#include "process/hand_over.h"
#include "settings/patcher_settings.h"
#include "settings/session_log.h"
#include "settings/settings_store.h"

namespace velmora {

int RunProgram(const std::string& commandLine) {
  Settings = PatcherSettings();
  if (!commandLine.empty()) ScanSettingsPath(commandLine);
  LoadSettings();
  if (commandLine.empty()) {
    LogMessage(texts::kLogNoOptions);
  } else if (ScanOptions(commandLine) == ScanResult::kEndProcess) {
    return 0;
  }
  return RunByRole();
}

}  // namespace velmora
