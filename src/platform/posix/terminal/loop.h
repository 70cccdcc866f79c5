// The dialog's thread: serves signals, keys or script, boxes and requests to close, and redraws.
// All of it is used on that one thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dialog.h"
#include "platform/posix/terminal/figures.h"
#include "platform/posix/terminal/output.h"
#include "platform/posix/terminal/screen.h"
#include "platform/posix/terminal/script.h"
#include "platform/posix/terminal/state.h"

namespace velmora::platform::terminal {

class DialogLoop {
 public:
  DialogLoop(DialogState& state, const DialogHandlers& handlers);

  // False if the system has not what the dialog needs; nothing has happened then.
  [[nodiscard]] bool Open();
  // Returns when the dialog has ended and the terminal is as it was; gives the dialog's result.
  int Run();

  // Shows a box from within a handler; returns when it is answered or the dialog has ended.
  void ShowBox(const BoxText& box);
  // Has the handler asked to close the dialog; nothing once it has ended.
  void Close();

 private:
  using Milliseconds = std::int64_t;  // a moment, or a length of time

  void Turn();
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
  // Whether a run was asked to stop and still goes on.
  [[nodiscard]] bool CancelWaits();
  void Press(Control control);
  void Command(Control control);

  void DrawIfDue();
  void Draw();
  void DrawScreen();
  [[nodiscard]] Figures FiguresOf(const DialogModel& model);
  [[nodiscard]] std::vector<std::string> BelowBlock(const DialogState::Picture& picture,
                                                    ScreenSize size);
  void WriteLines();
  void BringOutLines();
  void SayOnOutput(const std::string& line);
  void SayOnError(const std::string& utf8);
  void ClearWay();
  void NameKeys();
  void TakeTerminal();
  void GiveBackTerminal();
  void Suspend();
  void Finish();
  void BringOut();

  DialogState& state_;
  const DialogHandlers& handlers_;
  bool screenOn_ = false;    // a block on a terminal; otherwise lines
  bool keyboardOn_ = false;  // keys from a terminal; otherwise a script
  int output_ = -1;

  Output pending_;
  // Whether what must be seen first is waited for. Whoever has asked for an end by a signal isn't
  // kept waiting by a reader that has stopped.
  bool isPatient_ = true;
  Screen screen_;
  FigureKeeper figures_;
  Milliseconds lastDraw_ = 0;
  bool cancelAsked_ = false;  // by a player

  ScriptInput script_;
  bool inputEnded_ = false;
  bool waitsForRun_ = false;
  Milliseconds waitBegan_ = 0;
  int depth_ = 0;  // boxes that handlers wait for
};

}  // namespace velmora::platform::terminal
