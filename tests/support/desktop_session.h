// A desktop of a test's own: an X server without a screen, a window manager and a session bus, in a
// home folder of their own. A test reads a window through the interface for screen readers (AT-SPI)
// and presses keys in it, as a player would.
#pragma once

#include <atspi/atspi.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/workspace.h"

namespace velmora::test {

// Sets the environment of this process, whose children then run on the desktop. One in a process.
class DesktopSession {
 public:
  DesktopSession();
  ~DesktopSession();
  DesktopSession(const DesktopSession&) = delete;
  DesktopSession& operator=(const DesktopSession&) = delete;

  [[nodiscard]] const std::filesystem::path& home() const { return home_; }

 private:
  std::filesystem::path home_;
  std::vector<pid_t> children_;
};

// Runs a program in the background. Its standard input is empty.
[[nodiscard]] pid_t StartProgram(const std::vector<std::string>& words);
// The exit status, or -1 if it doesn't end within ten seconds; then it is killed.
[[nodiscard]] int WaitForProgram(pid_t program);

// Kills the processes of this name among a program's children and theirs. False if there is none.
[[nodiscard]] bool KillBelow(pid_t program, const std::string& name);

[[nodiscard]] bool WaitUntil(const std::function<bool()>& condition);

// A key of the player's keyboard, by its name for xdotool.
void PressKey(const std::string& key);
// The colour near the upper left corner of the patcher's pane, where no box lies, as "#RRGGBB".
[[nodiscard]] std::string PaneColor();

// What a screen reader finds in the patcher's windows, in UTF-8: "title: " and, for each control,
// "[caption]" for a button, "(caption)" for one that is disabled, "<text>" for a text and a number
// of percent for a bar. The control with the focus follows a "*". Empty without a window.
[[nodiscard]] std::string ReadWindows();
// Waits until that contains `part`, and prints what it found instead.
[[nodiscard]] testing::AssertionResult Shows(const std::string& part);

}  // namespace velmora::test
