#include "platform/posix/terminal/loop.h"

#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "base/ascii.h"
#include "base/text.h"
#include "platform/posix/dialog/loop.h"
#include "platform/posix/standard_descriptors.h"
#include "platform/posix/terminal/device.h"
#include "platform/posix/terminal/signals.h"
#include "platform/posix/terminal/text.h"
#include "platform/utf8.h"

namespace velmora::platform::terminal {
namespace {

using dialog::CancelWaits;
using dialog::ProgressOf;

// All in milliseconds.
constexpr std::int64_t kDrawInterval = 67;  // at most 15 redraws a second
constexpr std::int64_t kFigureInterval = 1000;

// A script that waits for a run polls often at first: many runs are short.
constexpr std::int64_t kFirstWait = 200;
constexpr std::int64_t kFirstPoll = 2;
constexpr std::int64_t kLaterPoll = 10;

constexpr std::int64_t kNever = -1;

std::int64_t Now() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

constexpr char kQuitKey = 'q';

bool AsksToEnd(int signal) { return signal == SIGINT || signal == SIGTERM || signal == SIGHUP; }

// The encoding of a script is unknown, so only its ASCII characters are shown.
std::string Printable(std::string text) {
  for (char& c : text) {
    if (!IsAscii(c) || IsControl(c)) c = '?';
  }
  return text;
}

void WriteError(const std::string& text) {
  Output output;
  output.Add(text);
  output.WriteAll(STDERR_FILENO, SignalDescriptor());
}

}  // namespace

DialogLoop::DialogLoop(DialogState& state, const DialogHandlers& handlers)
    : state_(state), handlers_(handlers) {}

bool DialogLoop::Open() {
  FillStandardDescriptors();
  screenOn_ = IsScreen();
  keyboardOn_ = IsKeyboard();
  DialogState::Observer observer;
  if (!screenOn_) observer = [this](const DialogModel& model) { lines_.Note(model); };
  if (!state_.Open(std::move(observer))) return false;
  if (!WatchSignals()) {
    state_.Close();
    return false;
  }
  output_ = screenOn_ ? OpenScreen() : STDOUT_FILENO;
  return true;
}

int DialogLoop::Run() {
  TakeTerminal();
  if (keyboardOn_ && !screenOn_) NameKeys();
  handlers_.opened();
  while (state_.IsOpen()) RunOnce();
  const int result = state_.Close();
  Finish();
  return result;
}

void DialogLoop::ShowBox(const BoxText& box) {
  if (!state_.IsOpen()) return;
  const std::uint64_t number = state_.AddBox(box);
  ++nestedBoxes_;
  while (!state_.IsAnswered(number) && state_.IsOpen()) RunOnce();
  --nestedBoxes_;
}

// Each step may end the dialog; the steps after it then have no effect. The wait comes first, so
// that a caller who loops until something has happened checks for it before the next wait.
void DialogLoop::RunOnce() {
  WaitForEvent();
  ServeSignals();
  ServeCloseRequest();
  ReportBoxes();
  ServeScript();
  DrawIfDue();
}

void DialogLoop::ServeSignals() {
  while (const auto signal = NextSignal()) ServeSignal(*signal);
}

void DialogLoop::ServeSignal(int signal) {
  if (AsksToEnd(signal)) waitsForReader_ = false;
  switch (signal) {
    case SIGINT:
      Interrupt();
      break;
    case SIGTERM:
    case SIGHUP:
      state_.AnswerBox();
      Close();
      break;
    case SIGTSTP:
      Suspend();
      break;
    case SIGCONT:
      // Another program may have changed the terminal's modes and moved its cursor.
      pending_.Add(screen_.Leave());
      TakeTerminal();
      state_.MarkChanged();
      break;
    default:
      state_.MarkChanged();
      break;
  }
}

void DialogLoop::Interrupt() {
  state_.AnswerBox();
  if (CanCancel()) {
    Press(Control::kUpdateButton);
  } else {
    Close();
  }
}

void DialogLoop::ServeCloseRequest() {
  const auto request = state_.TakeCloseRequest();
  if (!request) return;
  Close();
  state_.CloseDone(*request);
}

// Without a screen and a keyboard nobody can answer a box: it becomes a line.
void DialogLoop::ReportBoxes() {
  if (screenOn_ && keyboardOn_) return;
  while (const auto box = state_.CurrentBox()) {
    PrintError(ToUtf8(InOneLine(box->caption) + ": " + InOneLine(box->text)));
    state_.AnswerBox();
  }
}

void DialogLoop::ServeScript() {
  if (nestedBoxes_ > 0 || !state_.IsOpen()) return;
  if (waitsForRun_ && handlers_.runPhase() != RunPhase::kNone) return;
  waitsForRun_ = false;
  if (script_.HasLine()) Execute(script_.Next());
}

void DialogLoop::Execute(const ScriptLine& line) {
  if (line.tooLong) {
    PrintError("command refused: longer than " + std::to_string(kLongestScriptLine) + " bytes");
  } else if (line.text == kWaitCommand) {
    BeginWait();
  } else if (line.text == kCloseCommand) {
    Close();
  } else if (const ButtonKind* const button = FindByCommand(line.text)) {
    ExecuteButton(*button);
  } else {
    PrintError("unknown command: " + Printable(line.text));
  }
}

void DialogLoop::ExecuteButton(const ButtonKind& button) {
  // Programs press the Update button too, by a message that arrives even if it is disabled.
  const bool isAccepted =
      button.control == Control::kUpdateButton || state_.IsEnabled(button.control);
  if (isAccepted) {
    Command(button.control);
  } else {
    PrintLine(std::string(button.command) + ": refused, the button is disabled");
  }
}

void DialogLoop::BeginWait() {
  waitsForRun_ = true;
  waitBegan_ = Now();
}

void DialogLoop::WaitForEvent() {
  pollfd waited[] = {{state_.wakeDescriptor(), POLLIN, 0},
                     {SignalDescriptor(), POLLIN, 0},
                     {WantsInput() ? STDIN_FILENO : -1, POLLIN, 0},
                     {pending_.IsPending() ? output_ : -1, POLLOUT, 0}};
  if (poll(waited, std::size(waited), Timeout(Now())) <= 0) return;
  if (waited[0].revents != 0) state_.ClearWake();
  if (waited[2].revents != 0) ReadInput();
  if (waited[3].revents != 0) pending_.WriteReady(output_);
}

int DialogLoop::Timeout(Milliseconds now) {
  const Milliseconds input = UntilInput(now);
  const Milliseconds draw = UntilDraw(now);
  if (input == kNever) return static_cast<int>(draw);
  return static_cast<int>(draw == kNever ? input : std::min(input, draw));
}

DialogLoop::Milliseconds DialogLoop::UntilInput(Milliseconds now) const {
  if (nestedBoxes_ > 0) return kNever;
  if (waitsForRun_) return now - waitBegan_ < kFirstWait ? kFirstPoll : kLaterPoll;
  return script_.HasLine() ? 0 : kNever;
}

DialogLoop::Milliseconds DialogLoop::UntilDraw(Milliseconds now) {
  const auto until = [&](Milliseconds interval) {
    return std::max<Milliseconds>(lastDraw_ + interval - now, 0);
  };
  if (state_.HasChanged()) return until(kDrawInterval);
  // The rate and the times left change even while the controls don't.
  return screenOn_ && IsUpdating() ? until(kFigureInterval) : kNever;
}

// A command that can't run yet isn't read either, so a long script takes no memory.
bool DialogLoop::WantsInput() const { return !inputEnded_ && !waitsForRun_ && !script_.HasLine(); }

// Never reads a script beyond the next line: when the patcher has replaced itself, the new one
// reads on from there.
void DialogLoop::ReadInput() {
  char bytes[4096];
  const ssize_t count = read(STDIN_FILENO, bytes, keyboardOn_ ? sizeof bytes : 1);
  const bool isTemporary = count < 0 && (errno == EINTR || errno == EAGAIN);
  if (isTemporary) return;
  if (count <= 0) {
    inputEnded_ = true;
    script_.End();
  } else if (keyboardOn_) {
    ServeKeys({bytes, static_cast<std::size_t>(count)});
  } else {
    script_.Feed({bytes, static_cast<std::size_t>(count)});
  }
}

void DialogLoop::ServeKeys(std::string_view keys) {
  while (!keys.empty()) {
    ServeKey(keys[0]);
    keys.remove_prefix(KeyLength(keys));
  }
}

void DialogLoop::ServeKey(char key) {
  if (!state_.IsOpen()) return;
  if (state_.CurrentBox()) {
    state_.AnswerBox();
  } else if (key == kQuitKey) {
    Close();
  } else if (const ButtonKind* const button = FindByKey(key)) {
    if (state_.IsEnabled(button->control)) Press(button->control);
  }
}

bool DialogLoop::IsUpdating() const { return handlers_.runPhase() == RunPhase::kUpdating; }

bool DialogLoop::CanCancel() { return IsUpdating() && state_.IsEnabled(Control::kUpdateButton); }

// A player who cancels a run is told why it still goes on for a while.
void DialogLoop::Press(Control control) {
  const bool cancels = control == Control::kUpdateButton && CanCancel();
  const bool isAboutRun = control == Control::kUpdateButton || control == Control::kRecheckButton;
  Command(control);
  if (isAboutRun) cancelAsked_ = cancels;
  if (!cancels) return;
  if (!screenOn_) PrintLine(InOneLine(kCancelNotice));
}

void DialogLoop::Command(Control control) {
  if (!state_.IsOpen()) return;
  FlushLines();
  static_cast<void>(handlers_.command(static_cast<int>(control)));
}

void DialogLoop::Close() {
  if (!state_.IsOpen()) return;
  FlushLines();
  handlers_.close();
}

void DialogLoop::DrawIfDue() {
  if (state_.IsOpen() && UntilDraw(Now()) == 0) Draw();
}

void DialogLoop::Draw() {
  lastDraw_ = Now();
  if (screenOn_) {
    DrawScreen();
  } else {
    WriteLines();
  }
}

void DialogLoop::DrawScreen() {
  // A terminal that hasn't taken the last frame gets no other one.
  if (!pending_.WriteReady(output_)) return;
  const DialogState::Snapshot snapshot = state_.TakeSnapshot();
  const ScreenSize size = CurrentScreenSize();
  const double now = static_cast<double>(lastDraw_) / 1000;
  const Figures figures = figures_.Update(IsUpdating(), ProgressOf(snapshot.model, handlers_, now));
  const auto block = RenderBlock(snapshot.model, figures, size.columns);
  pending_.Add(screen_.Show(Arrange(block, BelowBlock(snapshot, size), size.rows), size));
  pending_.WriteReady(output_);
}

std::vector<std::string> DialogLoop::BelowBlock(const DialogState::Snapshot& snapshot,
                                                ScreenSize size) {
  if (snapshot.box) return RenderBox(*snapshot.box, size.columns);
  const bool waits = cancelAsked_ && CancelWaits(snapshot.model, handlers_) && state_.IsOpen();
  return waits ? RenderCancelNotice(size.columns) : std::vector<std::string>{};
}

void DialogLoop::WriteLines() {
  std::string lines;
  state_.Show([&](const DialogModel& model) {
    lines_.NoteFigures(model);
    lines = lines_.Take();
  });
  pending_.Add(ToUtf8(lines));
  pending_.WriteReady(output_);
}

void DialogLoop::FlushLines() {
  if (screenOn_) return;
  WriteLines();
  Flush();
}

void DialogLoop::PrintLine(const std::string& line) {
  if (!screenOn_) {
    state_.Show([&](const DialogModel& model) {
      lines_.NoteFigures(model);
      lines_.Add(line);
    });
    state_.MarkChanged();
    return;
  }
  EraseBlock();
  pending_.Add(line + "\r\n");
}

void DialogLoop::PrintError(const std::string& utf8) {
  EraseBlock();
  WriteError(utf8 + "\n");
}

// To be called before any other output: writes the lines so far, and removes the block, which may
// be on the same terminal.
void DialogLoop::EraseBlock() {
  FlushLines();
  if (!screenOn_) return;
  pending_.Add(screen_.Erase());
  Flush();
  state_.MarkChanged();
}

// For a terminal with lines: only a block shows the keys, beside its buttons.
void DialogLoop::NameKeys() {
  std::string keys = "keys:";
  for (const ButtonKind& kind : kButtons) keys += FormatText(" %c %s,", kind.key, kind.command);
  PrintLine(keys + FormatText(" %c %s", kQuitKey, kCloseCommand));
}

void DialogLoop::TakeTerminal() {
  if (keyboardOn_) TakeKeyboard();
  if (screenOn_) TakeScreen();
}

void DialogLoop::ReleaseTerminal() {
  ReleaseScreen();
  RestoreTerminal();
}

void DialogLoop::Suspend() {
  pending_.Add(screen_.Leave());
  Flush();
  ReleaseTerminal();
  StopProcess();
  TakeTerminal();
  state_.MarkChanged();
}

void DialogLoop::Finish() {
  while (NextSignal()) {
  }
  Draw();
  pending_.Add(screen_.Leave());
  // Waits for a reader that has stopped, until another signal asks for the end.
  while (!pending_.WriteAll(output_, SignalDescriptor())) {
    const auto signal = NextSignal();
    if (signal && AsksToEnd(*signal)) break;
  }
  ReleaseTerminal();
}

void DialogLoop::Flush() {
  if (waitsForReader_) pending_.WriteAll(output_, SignalDescriptor());
}

}  // namespace velmora::platform::terminal

namespace velmora::platform::dialog {
namespace {

terminal::DialogLoop* currentLoop = nullptr;  // null outside RunLoop

}  // namespace

std::optional<int> RunLoop(DialogState& state, const DialogHandlers& handlers) {
  terminal::DialogLoop loop(state, handlers);
  if (!loop.Open()) return std::nullopt;
  currentLoop = &loop;
  const int result = loop.Run();
  currentLoop = nullptr;
  return result;
}

void ShowBoxInLoop(const BoxText& box) {
  if (currentLoop != nullptr) currentLoop->ShowBox(box);
}

void CloseInLoop() {
  if (currentLoop != nullptr) currentLoop->Close();
}

}  // namespace velmora::platform::dialog
