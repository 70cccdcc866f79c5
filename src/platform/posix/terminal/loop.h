// The dialog's loop: serves signals, keys or a script, message boxes and requests to close, and
// redraws. For the dialog's thread only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dialog.h"
#include "platform/posix/dialog/figures.h"
#include "platform/posix/dialog/state.h"
#include "platform/posix/terminal/lines.h"
#include "platform/posix/terminal/output.h"
#include "platform/posix/terminal/screen.h"
#include "platform/posix/terminal/script.h"

namespace velmora::platform::terminal {

using dialog::DialogState;
using dialog::FigureKeeper;

class DialogLoop {
 public:
  DialogLoop(DialogState& state, const DialogHandlers& handlers);

  // False, without effect, if the system lacks what the dialog needs.
  [[nodiscard]] bool Open();
  // Returns the dialog's result when the dialog has ended and the terminal is restored.
  int Run();

  // For handlers. Returns when the box is answered or the dialog has ended.
  void ShowBox(const BoxText& box);
  // Calls the handler that closes the dialog, unless the dialog has ended.
  void Close();

 private:
  using Milliseconds = std::int64_t;  // a point in time, or a duration

  void RunOnce();
  void ServeSignals();
  void ServeSignal(int signal);
  void Interrupt();
  void ServeCloseRequest();
  void ReportBoxes();
  void ServeScript();
  void Execute(const ScriptLine& line);
  void ExecuteButton(const ButtonKind& button);
  void BeginWait();

  void WaitForEvent();
  [[nodiscard]] int Timeout(Milliseconds now);
  [[nodiscard]] Milliseconds UntilInput(Milliseconds now) const;
  [[nodiscard]] Milliseconds UntilDraw(Milliseconds now);
  [[nodiscard]] bool WantsInput() const;
  void ReadInput();
  void ServeKeys(std::string_view keys);
  void ServeKey(char key);

  [[nodiscard]] bool IsUpdating() const;
  [[nodiscard]] bool CanCancel();
  void Press(Control control);
  void Command(Control control);

  void DrawIfDue();
  void Draw();
  void DrawScreen();
  [[nodiscard]] std::vector<std::string> BelowBlock(const DialogState::Snapshot& snapshot,
                                                    ScreenSize size);
  void WriteLines();
  void FlushLines();
  void PrintLine(const std::string& line);
  void PrintError(const std::string& utf8);
  void EraseBlock();
  void NameKeys();
  void TakeTerminal();
  void ReleaseTerminal();
  void Suspend();
  void Finish();
  void Flush();

  DialogState& state_;
  const DialogHandlers& handlers_;
  bool screenOn_ = false;    // shows a block on a terminal; otherwise lines
  bool keyboardOn_ = false;  // takes keys from a terminal; otherwise a script
  int output_ = -1;

  Output pending_;
  // Whether a flush waits for a slow reader. After a signal that asks for the end it doesn't: a
  // reader that has stopped must not delay the end.
  bool waitsForReader_ = true;
  Screen screen_;
  LineReport lines_;  // of an output that isn't a terminal; guarded by the state's lock
  FigureKeeper figures_;
  Milliseconds lastDraw_ = 0;
  bool cancelAsked_ = false;  // by a player

  ScriptInput script_;
  bool inputEnded_ = false;
  bool waitsForRun_ = false;
  Milliseconds waitBegan_ = 0;
  int nestedBoxes_ = 0;  // that handlers wait for
};

}  // namespace velmora::platform::terminal
