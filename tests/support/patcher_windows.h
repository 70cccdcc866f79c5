// Drives the Windows program from outside, as a player does. Texts are in code page 932.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "platform/dialog.h"

namespace velmora::test {

using platform::Control;

inline constexpr unsigned kPatience = 15000;  // milliseconds for any wait

// Checks `holds` repeatedly until it is true; false if it never is.
bool WaitUntil(const std::function<bool()>& holds, unsigned milliseconds = kPatience);

// A process and all that it leads to. Its destructor ends those that still run.
class ProcessChain {
 public:
  ProcessChain();
  ~ProcessChain();
  ProcessChain(const ProcessChain&) = delete;
  ProcessChain& operator=(const ProcessChain&) = delete;

  // Starts a program of the working directory. The options are its command line as they are.
  void Start(const std::string& program, const std::string& options = "");
  // False if processes are still running after kPatience.
  [[nodiscard]] bool WaitForEnd();
  // Whether a process of the chain made the window.
  [[nodiscard]] bool Owns(HWND window) const;

 private:
  HANDLE job_;
};

// Waits for a message box, clicks its button and waits until the box is gone. Returns its caption
// and text as "caption: text"; says so if no box appears, or if it stays.
[[nodiscard]] std::string AnswerBox(const ProcessChain& chain);

// The update dialog of a chain.
class PatcherDialog {
 public:
  // Waits for the dialog. If none appears, IsOpen is false.
  explicit PatcherDialog(const ProcessChain& chain);

  [[nodiscard]] bool IsOpen() const { return IsWindow(window_) != FALSE; }
  // What the dialog shows: "<status> overall-bar file-bar [button] (disabled button)", with
  // "hidden" before a button that no player sees.
  [[nodiscard]] std::string Picture() const;
  // Waits until the picture has that part.
  [[nodiscard]] bool WaitFor(const std::string& part) const;

  // Clicks a control. False for one that a player can't press.
  [[nodiscard]] bool Click(Control control) const;
  // Presses a key. False if no window has the focus.
  [[nodiscard]] bool Press(WPARAM key) const;
  // Moves the focus to a control by the Tab key. False if it can't be reached.
  [[nodiscard]] bool TabTo(Control control) const;
  // Sends the command of a button, even of a hidden one.
  void Command(Control control) const;
  // Closes the dialog as the cross in its title bar does.
  void Close() const;

 private:
  [[nodiscard]] HWND Focus() const;
  [[nodiscard]] HWND WindowOf(Control control) const;

  HWND window_ = nullptr;
};

}  // namespace velmora::test
