#include "ui/launch_actions.h"

#include <cstddef>
#include <optional>
#include <string>

#include "platform/dialog.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "settings/patcher_settings.h"
#include "settings/session_log.h"

namespace velmora {
namespace {

using platform::Control;

// Sizes with room for the terminator, and the longest parameters.
constexpr std::size_t kDirectoryBuffer = 512;
constexpr std::size_t kLongDirectoryBuffer = 1024;
constexpr std::size_t kMaxParameters = 63;

constexpr char kScreenshotFolder[] = "\\Screenshot";
constexpr char kExplorer[] = "explorer";
constexpr char kDxDiag[] = "dxdiag.exe";

void Launch(const std::string& file, const std::optional<std::string>& directory,
            const std::string& parameters) {
  LogMessage("ShellExecuteEx : File = %s, Directory = %s, Parameters = %s\n", file.c_str(),
             directory ? directory->c_str() : "(null)", parameters.c_str());
  const std::string failure = platform::LaunchProgram(file, directory, parameters);
  if (!failure.empty())
    LogMessage("Launch failed : File = %s : %s\n", file.c_str(), failure.c_str());
}

// The working directory, for texts that are built from it; empty if it is too long.
std::optional<std::string> ShortWorkingDirectory() {
  const std::string directory = platform::WorkingDirectory(kDirectoryBuffer);
  if (directory.empty()) {
    LogMessage("Working directory is too long to be handed on\n");
    return std::nullopt;
  }
  return platform::ShortPath(directory, kDirectoryBuffer);
}

// The directory of a program whose name follows the working directory; empty if the text is too
// long, because cut short it would name another place.
std::optional<std::string> ProgramDirectory(const std::string& name) {
  const auto directory = ShortWorkingDirectory();
  if (!directory) return std::nullopt;
  const std::string program = *directory + name;
  if (program.size() < kDirectoryBuffer) return platform::WithoutLastPathElement(program);
  LogMessage("Directory text is too long, not used : %s\n", program.c_str());
  return std::nullopt;
}

// Empty, which names no file, if the system's folder is unknown.
std::string DxDiagPath() {
  const std::string folder = platform::SystemFolder(kLongDirectoryBuffer);
  return folder.empty() ? folder : folder + "\\system32\\" + kDxDiag;
}

}  // namespace

bool StartGame() {
  platform::EnableControl(Control::kOptionsButton, false);
  platform::EnableControl(Control::kStartGameButton, false);
  platform::EnableControl(Control::kRecheckButton, false);
  LogMessage("StartGame : Execute %s \n", Settings.ClientExe.c_str());
  // The client's name follows the directory with nothing in between. So a name with a leading
  // backslash runs in the working directory or below, and a plain one in the folder above it.
  const auto directory = ProgramDirectory(Settings.ClientExe);
  std::string parameters = "-id " + Settings.LaunchId;
  if (parameters.size() > kMaxParameters) {
    LogMessage("Launch id is too long, not handed on : %s\n", Settings.LaunchId.c_str());
    parameters = "-id ";
  }
  Launch(platform::LastPathElement(Settings.ClientExe), directory, parameters);
  platform::AskToClose();
  return true;
}

bool ExecOption() {
  LogMessage("ExecOption : Execute %s \n", Settings.OptionExe.c_str());
  Launch(platform::LastPathElement(Settings.OptionExe), ProgramDirectory("\\" + Settings.OptionExe),
         "");
  return true;
}

bool ExecScreenshot() {
  LogMessage("ExecOption : Execute %s \n", kExplorer);
  const auto directory = ShortWorkingDirectory();
  if (directory) Launch(kExplorer, std::nullopt, *directory + kScreenshotFolder);
  return true;
}

bool ExecDxDiag() {
  LogMessage("ExecOption : Execute %s \n", kDxDiag);
  const std::string path = DxDiagPath();
  if (!platform::FileExists(path)) return false;
  Launch(kDxDiag, platform::WithoutLastPathElement(path), "");
  return true;
}

bool HasScreenshots() {
  const std::string directory = platform::WorkingDirectory(kLongDirectoryBuffer);
  if (directory.empty()) return false;
  return platform::FileExists(
      platform::ShortPath(directory + kScreenshotFolder, kLongDirectoryBuffer));
}

bool HasDxDiag() { return platform::FileExists(DxDiagPath()); }

}  // namespace velmora
