// The Windows program as a player meets it: its processes, its dialog and its message boxes. Texts
// are code page 932, as the program's own. Nothing here waits longer than kPatience.
#pragma once

#include <windows.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace velmora::test {

inline constexpr unsigned kPatience = 15000;  // milliseconds

// Asks again and again; false if `holds` is still false at the end.
bool WaitUntil(const std::function<bool()>& holds, unsigned milliseconds = kPatience);

// A process and all that come of it. What still runs at the end is ended.
class ProcessChain {
 public:
  ProcessChain();
  ~ProcessChain();
  ProcessChain(const ProcessChain&) = delete;
  ProcessChain& operator=(const ProcessChain&) = delete;

  // Starts a program of the working directory; its options are handed on as they are.
  void Start(const std::string& program, const std::string& options = "");
  // False if processes are left when patience is at an end.
  [[nodiscard]] bool WaitForEnd();
  [[nodiscard]] std::vector<DWORD> RunningProcesses() const;

 private:
  HANDLE job_;
};

struct MessageBoxShown {
  HWND window = nullptr;
  std::string caption;
  std::string text;
};

// The box that a process of the chain shows, or nothing if none comes.
[[nodiscard]] std::optional<MessageBoxShown> WaitForBox(const ProcessChain& chain);
// Clicks its button. False if the box stays.
bool Answer(const MessageBoxShown& box);

// The update dialog, found by its title. Controls go by their number.
class PatcherDialog {
 public:
  // The dialog that a process of the chain shows. Without one, IsOpen is false.
  explicit PatcherDialog(const ProcessChain& chain);

  [[nodiscard]] bool IsOpen() const { return IsWindow(window_) != FALSE; }
  [[nodiscard]] std::string Title() const;
  [[nodiscard]] std::string Text(int control) const;
  [[nodiscard]] bool IsEnabled(int control) const;
  [[nodiscard]] bool IsVisible(int control) const;
  [[nodiscard]] int BarPosition(int control) const;

  bool WaitForText(int control, const std::string& text) const;
  bool WaitForEnabled(int control, bool enabled) const;
  bool WaitForBarPosition(int control, int position) const;
  bool WaitForClosed() const;

  // Presses the mouse button on a control and lets it go. False for one that a player can't press.
  bool Click(int control) const;
  // Presses a key. False if no window has the focus.
  [[nodiscard]] bool Press(WPARAM key) const;
  // Moves the focus to a control as a player without a mouse does. False if it can't be reached.
  [[nodiscard]] bool TabTo(int control) const;
  // The command of a button, for one that no player sees.
  void Command(int control) const;
  // What the cross in the title bar does.
  void Close() const;

 private:
  [[nodiscard]] HWND Focus() const;
  [[nodiscard]] HWND Control(int number) const { return GetDlgItem(window_, number); }

  HWND window_ = nullptr;
};

}  // namespace velmora::test
