// The update dialog: operations on its controls, and its life from opening to the end.
//
// Any thread may call the operations, up to and including AskToClose, unless a comment says
// otherwise. They return when the dialog has carried them out. Before it has opened and after it
// has ended they have no effect. Texts are code page 932; a line feed in a text starts a new line.
#pragma once

#include <cstdint>
#include <string>

namespace velmora::platform {

enum class Control : int {
  kUpdateButton = 1000,
  kStartGameButton = 1001,
  kOverallBar = 1002,  // counts records
  kFileBar = 1005,     // counts the bytes of the current file
  kRecheckButton = 1007,
  kStatusLine = 1008,  // text of up to two lines
  kOptionsButton = 1009,
  kDirectXButton = 1010,
  kScreenshotsButton = 1011,
  kInformationPane = 1019,
};

// Types of message boxes.
inline constexpr std::uint32_t kBoxPlain = 0;
inline constexpr std::uint32_t kBoxError = 0x40010;
inline constexpr std::uint32_t kBoxInformation = 0x40040;

void SetStatusText(const std::string& text);
void SetBarRange(Control bar, std::int32_t lowest, std::int32_t highest);
void SetBarStep(Control bar, std::int32_t step);
void SetBarPosition(Control bar, std::int32_t position);
void MoveBarPosition(Control bar, std::int32_t difference);
void StepBar(Control bar);
void EnableControl(Control control, bool enable);
void SetButtonCaption(Control button, const std::string& text);

// Sets the icon of the dialog's window. For the dialog's thread only.
void SetDialogIcon();

// Returns when the player has answered.
void ShowMessageBox(const std::string& text, const std::string& caption, std::uint32_t type);

// Calls `DialogHandlers::close` on the dialog's thread and returns when it has returned.
void AskToClose();

// How far an update run has come.
enum class RunPhase {
  kNone,      // no run, or it has ended
  kBusy,      // fetching the list, or about to end: there is nothing to cancel
  kUpdating,  // the Update button cancels the run
  kSaving,    // only its cache is left to save, and its buttons serve the next run
};

// What the dialog calls, always on its own thread.
struct DialogHandlers {
  void (*opened)();             // the controls exist, none is shown yet
  int (*command)(int control);  // a button's command, by the number of its control; 0 or -1
  void (*close)();              // the player, or AskToClose, wants the dialog closed
  void (*destroyed)();          // the dialog is gone
  RunPhase (*runPhase)();       // of the latest run; never waits. Asked by the terminal dialog
  // The bytes of work left after the current file, negative if unknown; asked by dialogs that show
  // a time left.
  std::int64_t (*bytesAhead)();
};

// Shows the dialog until EndUpdateDialog is called and returns the result given there; -1 if the
// dialog can't be created. To be called once in a process.
int RunUpdateDialog(const DialogHandlers& handlers);

// Ends the dialog. To be called by the handlers only.
void EndUpdateDialog(int result);

}  // namespace velmora::platform
