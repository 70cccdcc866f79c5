// The terminal dialog: its parts as pure functions, and the whole in child processes that have
// pipes or a terminal of their own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/texts.h"
#include "platform/dialog.h"
#include "platform/posix/terminal/figures.h"
#include "platform/posix/terminal/lines.h"
#include "platform/posix/terminal/model.h"
#include "platform/posix/terminal/render.h"
#include "platform/posix/terminal/screen.h"
#include "platform/posix/terminal/script.h"
#include "platform/posix/terminal/state.h"
#include "platform/posix/terminal/text.h"
#include "platform/posix/transfer_count.h"
#include "platform/processes.h"
#include "platform/utf8.h"
#include "support/terminal_child.h"
#include "support/terminal_picture.h"

namespace velmora::platform {
namespace {

using namespace terminal;
using test::TerminalChild;
using test::TerminalPicture;

// Plain literals are code page 932 here; what comes out of the dialog is UTF-8.
std::string Utf8(const char8_t* text) { return reinterpret_cast<const char*>(text); }

std::string WithoutStyle(std::string line) {
  for (const char* const style : {"\x1b[2m", "\x1b[0m"}) {
    for (std::size_t at; (at = line.find(style)) != std::string::npos;) line.erase(at, 4);
  }
  return line;
}

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const auto& line : lines) text += WithoutStyle(line) + "\n";
  return text;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

int CountOf(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
  return count;
}

DialogModel RunningModel() {
  DialogModel model;
  model.status = std::string(texts::kChecking) + " 3 / 12 \ndata\\a.pak";
  model.fileBar = {0, 8192, 4096, 1};
  model.overallBar = {0, 12, 3, 1};
  *model.FindButton(Control::kUpdateButton) = {"CancelUpdate", true};
  return model;
}

TEST(TerminalText, IsMeasuredInCells) {
  EXPECT_EQ(CellsOf("abc"), 3u);
  EXPECT_EQ(CellsOf(Utf8(u8"ソｱ")), 3u);
}

TEST(TerminalText, NoTwoBytesSteerTheTerminalOrTakeMoreThanTwoCells) {
  for (int pair = 0; pair < 0x10000; ++pair) {
    const std::string text = {static_cast<char>(pair >> 8), static_cast<char>(pair & 0xFF)};
    const std::string utf8 = ToUtf8(text);
    ASSERT_LE(CellsOf(utf8), 2u) << pair;
    for (const char c : utf8) ASSERT_TRUE(c == '\n' || c < 0 || (c >= ' ' && c != 0x7F)) << pair;
    ASSERT_FALSE(utf8.starts_with("\xC2") && utf8[1] < '\xA0') << pair;
  }
}

TEST(TerminalText, IsCutAndBrokenBetweenCharacters) {
  const std::string text = Utf8(u8"aソｱb");
  const char8_t* const kCuts[] = {u8"", u8"a", u8"a", u8"aソ", u8"aソｱ", u8"aソｱb", u8"aソｱb"};
  for (std::size_t cells = 0; cells < std::size(kCuts); ++cells) {
    EXPECT_EQ(CutToCells(text, cells), Utf8(kCuts[cells])) << cells;
  }
  using Lines = std::vector<std::string>;
  EXPECT_EQ(WrapToCells("abcde\n\nf", 2), (Lines{"ab", "cd", "e", "", "f"}));
  EXPECT_EQ(WrapToCells(Utf8(u8"aソb"), 2), (Lines{"a", Utf8(u8"ソ"), "b"}));
  EXPECT_EQ(WrapToCells(Utf8(u8"aソb"), 1), (Lines{"a", "", "b"}));
}

TEST(TerminalBar, MovesAsOnWindows) {
  constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
  Bar bar;
  EXPECT_EQ(bar.highest, 100);
  SetPosition(bar, 150);
  EXPECT_EQ(bar.position, 100);
  SetPosition(bar, -1);
  EXPECT_EQ(bar.position, 0);
  SetPosition(bar, 80);
  SetRange(bar, 0, 50);
  EXPECT_EQ(bar.position, 50);
  SetRange(bar, 60, 70);
  EXPECT_EQ(bar.position, 60);

  bar = {0, 3, 2, 1};
  for (const int position : {3, 0, 1}) {
    StepOnce(bar);
    EXPECT_EQ(bar.position, position);
  }
  bar = {0, kMax, kMax, kMax};
  StepOnce(bar);
  EXPECT_EQ(bar.position, 0);
}

TEST(TerminalBar, PercentStaysWithinItsBounds) {
  constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(PercentOf({0, 3, 1, 1}), 33);
  EXPECT_EQ(PercentOf({0, 1000, 999, 1}), 99);
  EXPECT_EQ(PercentOf({0, 0, 0, 1}), 0);
  EXPECT_EQ(PercentOf({5, -5, -5, 1}), 0);
  EXPECT_EQ(PercentOf({kMin, kMax, kMax, 1}), 100);
  EXPECT_EQ(PercentOf({kMin, kMax, 0, 1}), 50);
}

TEST(TerminalRender, FitsEveryWidth) {
  DialogModel model = RunningModel();
  model.status = std::string(texts::kConnecting) + std::string(300, 'x');
  const Figures figures{123456789, 12345, 123456};
  const BoxText box{texts::kNoServer, texts::kErrorCaption, kBoxError};
  for (std::size_t columns = 1; columns <= 200; ++columns) {
    auto lines = RenderBlock(model, figures, columns);
    for (const auto& line : RenderBox(box, columns)) lines.push_back(line);
    for (const auto& line : lines) EXPECT_LE(CellsOf(WithoutStyle(line)), columns) << line;
    if (columns < 20) continue;
    for (const char* const key : {"[u]", "(s)", "(r)", "[o]", "[d]", "[p]", "[q]"}) {
      EXPECT_TRUE(Contains(Joined(lines), key)) << columns << key;
    }
  }
}

TEST(TerminalRender, ShowsAllOfTheDialog) {
  const auto lines = RenderBlock(RunningModel(), {2048, 2, 75}, 80);
  ASSERT_GE(lines.size(), 6u);
  EXPECT_EQ(lines[0], Utf8(u8"VELMORA アップデート  1.12"));
  EXPECT_EQ(lines[1], Utf8(u8"確認中  3 / 12 "));
  EXPECT_EQ(lines[2], "data\\a.pak");
  EXPECT_EQ(lines[3],
            "File  50 %  [##########----------]  4.0 KiB / 8.0 KiB  2.0 KiB/s  0:02 left");
  EXPECT_EQ(lines[4], "All   25 %  [#####---------------]  3 / 12  1:15 left");
  EXPECT_TRUE(lines[5].starts_with(Utf8(u8"[u] CancelUpdate \x1b[2m(s) ゲーム開始\x1b[0m")));

  const struct {
    std::size_t columns;
    const char* file;
    const char* all;
  } kNarrow[] = {
      {45, "File  50 %  4.0 KiB / 8.0 KiB  2.0 KiB/s",
       "All   25 %  [##-------]  3 / 12  1:15:00 left"},
      {39, "File  50 %  [###---]  4.0 KiB / 8.0 KiB", "All   25 %  3 / 12  1:15:00 left"},
      {31, "File  50 %  4.0 KiB / 8.0 KiB", "All   25 %  [##-------]  3 / 12"},
      {20, "File  50 %  [###---]", "All   25 %  3 / 12"},
      {7, "File  5", "All   2"}};
  for (const auto& c : kNarrow) {
    const auto narrow = RenderBlock(RunningModel(), {2048, 2, 4500}, c.columns);
    EXPECT_EQ(narrow[3], c.file) << c.columns;
    EXPECT_EQ(narrow[4], c.all) << c.columns;
  }

  const auto idle = RenderBlock(DialogModel(), {}, 80);
  EXPECT_EQ(idle.size(), lines.size()) << "a block that changes its height jumps";
  EXPECT_FALSE(Contains(Joined(idle), "/s"));
  EXPECT_FALSE(Contains(Joined(idle), "left"));
}

TEST(TerminalRender, KeepsTheBoxOnALowTerminal) {
  using Lines = std::vector<std::string>;
  const Lines block = {"1", "2", "3", "4"};
  EXPECT_EQ(Arrange(block, {"a", "b"}, 10), (Lines{"1", "2", "3", "4", "a", "b"}));
  EXPECT_EQ(Arrange(block, {"a", "b"}, 3), (Lines{"1", "a", "b"}));
  EXPECT_EQ(Arrange(block, {"-", "a", "b", "key"}, 3), (Lines{"a", "b", "key"}));
  EXPECT_EQ(Arrange(block, {"-", "a", "b", "key"}, 2), (Lines{"a", "key"}));
  EXPECT_EQ(Arrange(block, {"-", "a"}, 1), (Lines{"a"}));
  EXPECT_EQ(Arrange(block, {}, 2), (Lines{"1", "2"}));
}

TEST(TerminalFigures, TellRateAndTimeLeftOfDownloadsOnly) {
  constexpr std::optional<std::int64_t> kNone;
  constexpr std::int64_t kNobodyKnows = -1;
  const struct {
    double now;
    std::int64_t received;
    std::int64_t fileLeft;
    std::int64_t ahead;
    std::optional<std::int64_t> rate;
    std::optional<std::int64_t> fileTime;
    std::optional<std::int64_t> time;
    const char* why;
  } kMoments[] = {
      {10, 500, 0, kNobodyKnows, kNone, kNone, kNone, "what the list took doesn't count"},
      {10.1, 500, 8000, 20000, kNone, kNone, kNone, "too early to tell"},
      {11.1, 1500, 7000, 20000, 909, 8, kNone, "too early for the whole"},
      {14.1, 4500, 4000, 20000, 1000, 4, 24, "the first file, a large one"},
      {18.1, 8500, 0, 20000, 1000, kNone, 20, "between two files"},
      {22.1, 8500, 10000, 10000, kNone, kNone, kNone, "nothing has come for long"},
      {26.1, 12500, 6000, 10000, 1000, 6, 19, "the pause counts for the rest"},
      {40, 28490, 10, 0, 1150, 1, 1, "almost done"},
      {40.1, 28500, 0, 0, 1143, kNone, kNone, "nothing is left"},
      {60, 28500, 100000, 0, kNone, kNone, kNone, "the next file"},
      {63.5, 28501, 99999, 0, kNone, kNone, kNone, "a byte now and then is no rate"},
  };
  FigureKeeper keeper;
  for (const auto& c : kMoments) {
    Progress progress{c.now, c.received, c.fileLeft, c.ahead};
    if (c.ahead == kNobodyKnows) progress.ahead.reset();
    const Figures figures = keeper.Update(true, progress);
    EXPECT_EQ(figures.bytesPerSecond, c.rate) << c.why;
    EXPECT_EQ(figures.fileSecondsLeft, c.fileTime) << c.why;
    EXPECT_EQ(figures.secondsLeft, c.time) << c.why;
  }
  keeper.Update(false, {41, 20000, 0, 0});
  // A re-check: most of the files are there and good.
  keeper.Update(true, {50, 20000, 1000, 100000});
  EXPECT_FALSE(keeper.Update(true, {52, 20000, 1000, 50000}).bytesPerSecond);
  const Figures mixed = keeper.Update(true, {54, 20800, 200, 50000});
  EXPECT_EQ(mixed.fileSecondsLeft, 1);
  EXPECT_FALSE(mixed.secondsLeft) << "how many more are good?";
}

TEST(TerminalFigures, TakeTheFileBarOfTheFileBeforeForNothing) {
  DialogModel model;
  model.fileBar = {0, 1000, 400, 1};
  EXPECT_EQ(RestOfFile(model), 1000);
  model.fileBarMoved = true;
  EXPECT_EQ(RestOfFile(model), 600);
}

TEST(TerminalScreen, RedrawsInPlace) {
  using Lines = std::vector<std::string>;
  Screen screen;
  const ScreenSize size{10, 6};
  TerminalPicture picture(size.columns, size.rows);
  picture.Feed("$ velmora\r\n");
  const Lines kFrames[] = {
      {"one", "two", "three"}, {"0123456789", "b"}, {"a", "b", "c", "d"}, {"x"}};
  for (const Lines& frame : kFrames) {
    picture.Feed(screen.Show(frame, size));
    Lines expected = {"$ velmora"};
    expected.insert(expected.end(), frame.begin(), frame.end());
    EXPECT_EQ(picture.lines(), expected);
    EXPECT_EQ(picture.cursorLine(), frame.size());
    EXPECT_FALSE(picture.isCursorShown());
    EXPECT_EQ(screen.Show(frame, size), "") << "nothing new, nothing written";
  }
  picture.Feed(screen.Erase());
  picture.Feed("note\r\n");
  picture.Feed(screen.Show({"x", "y"}, size));
  EXPECT_EQ(picture.lines(), (Lines{"$ velmora", "note", "x", "y"}));
  picture.Feed(screen.Leave());
  EXPECT_EQ(picture.lines(), (Lines{"$ velmora", "note", "x", "y", ""}));
  EXPECT_TRUE(picture.isCursorShown());
  EXPECT_EQ(picture.scrolled(), 0);
}

TEST(TerminalScreen, StaysInItsPlaceWhenTheTerminalBecomesNarrow) {
  using Lines = std::vector<std::string>;
  for (const std::size_t rows : {std::size_t{9}, std::size_t{4}}) {
    Screen screen;
    TerminalPicture picture(10, rows);
    picture.Feed("$ velmora\r\n");
    picture.Feed(screen.Show({"0123456789", "b", "\x1b[2m01234567\x1b[0m"}, {10, rows}));
    picture.Narrow(4);
    picture.Feed(screen.Show({"0123", "b"}, {4, rows}));
    Lines expected = {"$ ve", "lmor", "a", "0123", "b"};
    if (rows == 4) expected = {"0123", "b"};  // what was above has left by itself
    EXPECT_EQ(picture.lines(), expected);
    EXPECT_EQ(picture.scrolled(), rows == 4 ? 5 : 0);
  }
}

TEST(TerminalLines, NameEachVisibleChangeOnce) {
  LineReport report;
  DialogModel model;
  const auto lines = [&](const std::function<void()>& change) {
    change();
    report.Note(model);
    std::string noted = ToUtf8(report.Take());
    report.NoteFigures(model);
    return noted.empty() ? ToUtf8(report.Take()) : noted;
  };
  EXPECT_EQ(lines([] {}), "");
  EXPECT_EQ(lines([&] { model.status = RunningModel().status; }),
            Utf8(u8"status: 確認中  3 / 12 | data\\a.pak\n"));
  EXPECT_EQ(lines([&] { model.status += "\n"; }), "");
  EXPECT_EQ(lines([&] { model.status = "\n\na \n\nb"; }), "status:  |  | a |  | b\n");

  EXPECT_EQ(lines([&] { SetRange(model.fileBar, 0, 8192); }), "file bar: 0 % (0 / 8192)\n");
  EXPECT_EQ(lines([&] { SetPosition(model.fileBar, 81); }), "");
  EXPECT_EQ(lines([&] { SetPosition(model.fileBar, 4096); }), "file bar: 50 % (4096 / 8192)\n");
  EXPECT_EQ(lines([&] { SetPosition(model.fileBar, 4097); }), "");
  EXPECT_EQ(lines([&] { model.fileBar.step = 5; }), "");

  EXPECT_EQ(lines([&] { SetRange(model.overallBar, 0, 1200); }), "overall bar: 0 % (0 / 1200)\n");
  EXPECT_EQ(lines([&] { SetPosition(model.overallBar, 1); }), "overall bar: 0 % (1 / 1200)\n");
  EXPECT_EQ(lines([&] { SetPosition(model.overallBar, 1); }), "");

  ButtonState& update = *model.FindButton(Control::kUpdateButton);
  EXPECT_EQ(lines([&] { update.enabled = true; }), "Update button: enabled\n");
  EXPECT_EQ(lines([&] { update.caption = "CancelUpdate"; }), "Update button: CancelUpdate\n");
  EXPECT_EQ(lines([&] { model.FindButton(Control::kStartGameButton)->enabled = true; }),
            "Start Game button: enabled\n");

  // Files that come and go between two looks leave no line; where a button changes, it is seen at
  // what state of things.
  for (int i = 0; i < 1000; ++i) {
    model.status = std::to_string(i);
    report.Note(model);
  }
  EXPECT_EQ(lines([&] { update.enabled = false; }), "status: 999\nUpdate button: disabled\n");
}

TEST(TerminalState, WakesTheDialogOnceForManyChanges) {
  DialogState state;
  ASSERT_TRUE(state.Open(false));
  EXPECT_TRUE(state.HasChanged()) << "the first picture is due from the start";
  for (int redraw = 0; redraw < 3; ++redraw) {
    static_cast<void>(state.TakePicture());
    for (int i = 0; i < 1000; ++i) state.Change([](DialogModel& model) { model.status += "x"; });
    std::uint64_t wakeUps = 0;
    EXPECT_EQ(read(state.wakeDescriptor(), &wakeUps, sizeof wakeUps), 8);
    EXPECT_EQ(wakeUps, 1u);
    EXPECT_TRUE(state.HasChanged());
  }
  EXPECT_EQ(state.TakePicture().model.status.size(), 3000u);
  close(state.wakeDescriptor());
}

std::vector<std::string> AllLines(ScriptInput& input) {
  std::vector<std::string> lines;
  while (input.HasLine()) {
    const ScriptLine line = input.Next();
    lines.push_back(line.tooLong ? "<too long>" : line.text);
  }
  return lines;
}

TEST(TerminalScript, IsCutIntoLinesHoweverItArrives) {
  const std::string longest(kLongestScriptLine, 'x');
  const std::string script = "update\n  start \t\r\n\n \r\nun known\n" + longest + "\n" + longest +
                             "x\n" + longest + longest + longest + "\nclose";
  for (const std::size_t piece :
       {std::size_t{1}, std::size_t{7}, std::size_t{4096}, script.size()}) {
    ScriptInput input;
    for (std::size_t at = 0; at < script.size(); at += piece) input.Feed(script.substr(at, piece));
    input.End();
    EXPECT_EQ(AllLines(input),
              (std::vector<std::string>{"update", "start", "un known", longest, "<too long>",
                                        "<too long>", "close", "wait", "close"}))
        << piece;
  }
}

// The program around the dialog in a child. A close ends it with 7.
struct Program {
  std::function<void()> opened = [] {};
  std::function<void(int)> command = [](int) {};
  std::function<void()> close = [] { EndUpdateDialog(7); };
  std::function<void()> destroyed = [] {};
};

Program* program = nullptr;
std::atomic<RunPhase> phase = RunPhase::kNone;

int RunProgram(Program runs) {
  program = &runs;
  return RunUpdateDialog({[] { program->opened(); },
                          [](int control) {
                            program->command(control);
                            return 0;
                          },
                          [] { program->close(); }, [] { program->destroyed(); },
                          [] { return phase.load(); }, [] { return std::int64_t{0}; }});
}

void StartWorker(const std::function<void()>& work) {
  if (phase == RunPhase::kNone) phase = RunPhase::kPreparing;
  std::thread([work] {
    work();
    phase = RunPhase::kNone;
  }).detach();
}

// Straight to the output, past the dialog.
void Say(const std::string& text) { EXPECT_GT(write(STDOUT_FILENO, text.data(), text.size()), 0); }

void Sleep(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void OfferCancel() {
  SetButtonCaption(Control::kUpdateButton, "CancelUpdate");
  EnableControl(Control::kUpdateButton, true);
  phase = RunPhase::kUpdating;
}

TEST(TerminalDialog, OperationsDoNothingWithoutADialog) {
  SetStatusText("text");
  StepBar(Control::kFileBar);
  ShowMessageBox("text", "caption", kBoxError);
  AskToClose();
  EndUpdateDialog(1);
}

std::string WithoutBars(const std::string& output) {
  std::string lines;
  for (const std::string_view line : SplitLines(output)) {
    if (!line.empty() && !line.starts_with("file bar: ")) lines += std::string(line) + "\n";
  }
  return lines;
}

TEST(TerminalDialogScript, RunsCommandsInOrderBetweenExactLines) {
  auto child = TerminalChild::WithPipes([] {
    return RunProgram({.opened =
                           [] {
                             SetStatusText("opened\n");
                             EnableControl(Control::kScreenshotsButton, false);
                           },
                       .command =
                           [](int control) {
                             Say("command " + std::to_string(control) + "\n");
                             StartWorker([] {
                               for (int i = 0; i <= 1000; ++i)
                                 SetBarPosition(Control::kFileBar, i / 10);
                               SetStatusText(texts::kCompleted);
                               ShowMessageBox("a\nb", texts::kErrorCaption, kBoxError);
                               Say("answered\n");
                               EnableControl(Control::kStartGameButton, true);
                             });
                           },
                       .destroyed = [] { SetStatusText("never seen"); }});
  });
  child.Send(
      "start\r\nupdate\nwait\n  start  \n\nwait\nbogus\x1b command\nscreenshots\nclose\nupdate\n");
  EXPECT_EQ(child.Wait(), 7);

  // How far the bar is seen to come is a matter of time.
  const std::string completed = Utf8(u8"status: アップデート完了\n");
  EXPECT_EQ(WithoutBars(child.output()),
            "status: opened\nscreenshots button: disabled\n"
            "start: refused, the button is disabled\ncommand 1000\n" +
                completed + "answered\nStart Game button: enabled\ncommand 1001\n" +
                "answered\nscreenshots: refused, the button is disabled\n");
  EXPECT_EQ(child.errors(),
            Utf8(u8"エラー: a | b\nエラー: a | b\nunknown command: bogus? command\n"));
}

TEST(TerminalDialogScript, EndOfInputWaitsForTheRunAndCloses) {
  const auto run = [] {
    return RunProgram({.opened = [] { StartWorker([] { Sleep(300), Say("over\n"); }); },
                       .command = [](int control) { Say(std::to_string(control) + "\n"); }});
  };
  auto ended = TerminalChild::WithPipes(run);
  ended.Send("options");
  ended.CloseInput();
  EXPECT_EQ(ended.Wait(), 7);
  EXPECT_EQ(ended.output(), "1009\nover\n");

  for (const bool isClosed : {false, true}) {
    auto none = TerminalChild::WithPipes([&] {
      const int nothing = open("/dev/null", O_RDONLY);
      isClosed ? close(STDIN_FILENO) : dup2(nothing, STDIN_FILENO);
      return run();
    });
    EXPECT_EQ(none.Wait(), 7);
    EXPECT_EQ(none.output(), "over\n") << isClosed;
  }
}

TEST(TerminalDialogScript, EndOfInputAsksOnceToClose) {
  auto child = TerminalChild::WithPipes([] {
    static int closes = 0;
    static std::atomic<bool> isAskedAgain = false;
    return RunProgram({.close = [] {
      if (++closes == 1) {
        std::thread([] {
          Sleep(50);
          isAskedAgain = true;
          AskToClose();
        }).detach();
      }
      if (isAskedAgain) EndUpdateDialog(closes);
    }});
  });
  child.CloseInput();
  EXPECT_EQ(child.Wait(), 2);
}

TEST(TerminalDialogScript, WaitServesSignals) {
  auto child = TerminalChild::WithPipes([] {
    return RunProgram({.opened = [] { StartWorker([] { Sleep(1'000'000); }); },
                       .command =
                           [](int control) {
                             Say("command " + std::to_string(control) + "\n");
                             EnableControl(Control::kUpdateButton, control != 1000);
                             if (control == 1009) OfferCancel();
                           }});
  });
  child.Send("options\nwait\nclose\n");
  ASSERT_TRUE(child.WaitFor("CancelUpdate\n"));
  child.Signal(SIGINT);
  ASSERT_TRUE(child.WaitFor("command 1000\nUpdate button: disabled\n"));
  child.Signal(SIGTERM);
  EXPECT_EQ(child.Wait(), 7);
}

TEST(TerminalDialogScript, SurvivesAnOutputThatIsGone) {
  auto child = TerminalChild::WithPipes([] {
    return RunProgram({.opened = [] {
      StartWorker([] {
        for (int i = 0; i < 100'000; ++i) SetStatusText(std::to_string(i));
      });
    }});
  });
  child.CloseOutput();
  child.CloseInput();
  EXPECT_EQ(child.Wait(), 7);
}

TEST(TerminalDialogScript, LosesNothingToASlowReaderAndStillHearsSignals) {
  constexpr int kLines = 30'000;  // more than a pipe holds
  int closed[2];
  ASSERT_EQ(pipe2(closed, O_CLOEXEC), 0);
  auto child = TerminalChild::WithPipes([&] {
    return RunProgram({.opened =
                           [] {
                             for (int i = 0; i < kLines; ++i) {
                               SetButtonCaption(Control::kUpdateButton, std::to_string(i));
                             }
                           },
                       .close =
                           [&] {
                             EndUpdateDialog(7);
                             EXPECT_EQ(write(closed[1], "!", 1), 1);
                           }});
  });
  pollfd output = {child.outputDescriptor(), POLLIN, 0};
  ASSERT_EQ(poll(&output, 1, 20'000), 1) << "the lines have begun to come";
  child.Signal(SIGTERM);
  pollfd close = {closed[0], POLLIN, 0};
  EXPECT_EQ(poll(&close, 1, 20'000), 1) << "closed while nobody reads";
  EXPECT_EQ(child.Wait(), 7);
  EXPECT_EQ(CountOf(child.output(), "\n"), kLines);
  EXPECT_TRUE(child.output().ends_with("button: " + std::to_string(kLines - 1) + "\n"));
}

TEST(TerminalDialog, AskToCloseReturnsWhenTheCloseIsOver) {
  auto child = TerminalChild::WithPipes([] {
    static std::atomic<int> closes = 0;
    static std::atomic<bool> isOver = false;
    const int result = RunProgram({.opened =
                                       [] {
                                         StartWorker([] {
                                           AskToClose();
                                           Say(closes == 1 ? "first over\n" : "too early\n");
                                           AskToClose();
                                           SetStatusText("never seen");
                                           ShowMessageBox("never", "seen", kBoxPlain);
                                           isOver = true;
                                         });
                                       },
                                   .close =
                                       [] {
                                         Sleep(50);
                                         if (++closes == 2) EndUpdateDialog(3);
                                       }});
    while (!isOver) Sleep(1);
    return result;
  });
  EXPECT_EQ(child.Wait(), 3);
  EXPECT_EQ(child.output(), "first over\n");
  EXPECT_EQ(child.errors(), "");
}

TEST(TerminalDialog, EndsFromWithinOpenedWithABoxBefore) {
  auto child = TerminalChild::WithPipes([] {
    return RunProgram({.opened = [] {
      ShowMessageBox(texts::kPaneFailed, texts::kErrorCaption, kBoxPlain);
      EndUpdateDialog(0);
      SetStatusText("never seen");
    }});
  });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(child.errors(), Utf8(u8"エラー: インフォメーションウインドウの初期化に失敗しました\n"));
  EXPECT_EQ(child.output(), "");
}

// The commands so far turn up in the status line, which shows on the screen.
int RunOnTerminal(std::function<void()> opened = [] {}) {
  static std::string commands;
  return RunProgram({.opened = std::move(opened),
                     .command =
                         [](int control) {
                           commands += " " + std::to_string(control);
                           SetStatusText("commands" + commands);
                           if (control == 1000) EnableControl(Control::kUpdateButton, false);
                         },
                     .close =
                         [] {
                           SetStatusText("closed after" + commands);
                           EndUpdateDialog(7);
                         }});
}

std::string ScreenAfter(const TerminalChild& child) {
  TerminalPicture picture(80, 24);
  picture.Feed(child.output());
  EXPECT_TRUE(picture.isCursorShown());
  EXPECT_EQ(picture.scrolled(), 0);
  EXPECT_EQ(picture.cursorLine() + 1, picture.lines().size())
      << "the cursor stands below the block";
  EXPECT_EQ(picture.lines().back(), "");
  return Joined(picture.lines());
}

TEST(TerminalDialogKeys, PressEnabledButtonsAndLeaveTheTerminalAsItWas) {
  auto child = TerminalChild::OnTerminal([] { return RunOnTerminal(); });
  ASSERT_TRUE(child.WaitFor("[q] close"));
  EXPECT_FALSE(child.IsTerminalNormal());
  child.Send("usrx\x1b[1;5p\x1bOd\x1bq\x1b[A");
  child.Send("o");
  ASSERT_TRUE(child.WaitFor("commands 1009"));
  child.Send("p");
  ASSERT_TRUE(child.WaitFor("commands 1009 1011"));
  child.Send("q");
  EXPECT_EQ(child.Wait(), 7);
  EXPECT_TRUE(child.IsTerminalNormal());
  const std::string screen = ScreenAfter(child);
  EXPECT_TRUE(screen.starts_with(Utf8(u8"VELMORA アップデート  1.12\nclosed after 1009 1011\n")))
      << screen;
  EXPECT_EQ(CountOf(screen, "VELMORA"), 1) << screen;
}

TEST(TerminalDialogKeys, CtrlCCancelsFirstAndClosesThen) {
  auto child = TerminalChild::OnTerminal([] { return RunOnTerminal(OfferCancel); });
  ASSERT_TRUE(child.WaitFor("[u] CancelUpdate"));
  child.Send("\x03");
  ASSERT_TRUE(child.WaitFor("Cancelling when this file is done."));
  child.Send("o");
  ASSERT_TRUE(child.WaitFor("commands 1000 1009"));
  ASSERT_TRUE(child.WaitFor("Ctrl-C again closes"));
  child.Send("\x03");
  EXPECT_EQ(child.Wait(), 7);
  EXPECT_FALSE(Contains(ScreenAfter(child), "Cancelling"));
  EXPECT_TRUE(child.IsTerminalNormal());
}

TEST(TerminalDialogKeys, GoWithLinesOnATerminalThatNobodyKnows) {
  for (const char* const kind : {static_cast<const char*>(nullptr), "dumb", "no-such-terminal"}) {
    auto child = TerminalChild::OnTerminal([] { return RunOnTerminal(OfferCancel); }, 80, 24, kind);
    ASSERT_TRUE(child.WaitFor("keys: u update, s start"));
    ASSERT_TRUE(child.WaitFor("Update button: CancelUpdate"));
    child.Send("u");
    ASSERT_TRUE(child.WaitFor("Cancelling when this file is done. | Ctrl-C again"));
    child.Send("q");
    EXPECT_EQ(child.Wait(), 7);
    EXPECT_FALSE(Contains(child.output(), "\x1b"));
  }
}

TEST(TerminalDialogKeys, AnswerABoxWithoutADialog) {
  auto child = TerminalChild::OnTerminal([] {
    ShowStartBox("text", "caption", kBoxError);
    return 5;
  });
  ASSERT_TRUE(child.WaitFor("caption: text\r\n[Enter]"));
  child.Send("x");
  EXPECT_EQ(child.Wait(), 5);
}

TEST(TerminalDialogKeys, SignalsThatEndLeaveTheTerminalAsItWas) {
  const struct {
    int signal;
    int end;
  } kCases[] = {{SIGTERM, 7},
                {SIGHUP, 7},
                {SIGQUIT, 1000 + SIGQUIT},
                {SIGABRT, 1000 + SIGABRT},
                {SIGFPE, 1000 + SIGFPE}};
  for (const auto& c : kCases) {
    auto child = TerminalChild::OnTerminal([&] {
      // Sanitizers have handlers of their own for some of these.
      if (c.end != 7) signal(c.signal, SIG_DFL);
      return RunOnTerminal();
    });
    ASSERT_TRUE(child.WaitFor("[q] close"));
    EXPECT_FALSE(child.IsTerminalNormal());
    child.Signal(c.signal);
    EXPECT_EQ(child.Wait(), c.end);
    EXPECT_TRUE(child.IsTerminalNormal()) << c.signal;
    ScreenAfter(child);
  }
}

// A shell's part: runs the dialog as a job in front, and in front again after it was stopped.
int RunAsJob() {
  signal(SIGTTOU, SIG_IGN);
  const pid_t job = fork();
  if (job == 0) {
    setpgid(0, 0);
    tcsetpgrp(STDIN_FILENO, getpid());
    signal(SIGTTOU, SIG_DFL);
    _exit(RunOnTerminal());
  }
  int status = 0;
  waitpid(job, &status, WUNTRACED);
  if (!WIFSTOPPED(status)) return 1;
  tcsetpgrp(STDIN_FILENO, getpid());
  Say("stopped\r\n");
  char line[16];
  if (read(STDIN_FILENO, line, sizeof line) <= 0) return 2;  // a whole line
  tcsetpgrp(STDIN_FILENO, job);
  kill(job, SIGCONT);
  waitpid(job, &status, 0);
  return WEXITSTATUS(status);
}

TEST(TerminalDialogKeys, CtrlZStopsAndGoesOn) {
  auto child = TerminalChild::OnTerminal(RunAsJob);
  ASSERT_TRUE(child.WaitFor("[q] close"));
  child.Send("\x1a");
  ASSERT_TRUE(child.WaitFor("stopped"));
  EXPECT_TRUE(child.IsTerminalNormal());
  child.Send("fg\n");
  ASSERT_TRUE(child.WaitFor("[q] close"));
  EXPECT_FALSE(child.IsTerminalNormal());
  child.Send("q");
  EXPECT_EQ(child.Wait(), 7);
  EXPECT_TRUE(child.IsTerminalNormal());
}

TEST(TerminalDialogBox, WaitsForAKeyThatAnswersItAlone) {
  auto child = TerminalChild::OnTerminal([] {
    return RunOnTerminal([] {
      StartWorker([] {
        ShowMessageBox(texts::kNoServer, texts::kErrorCaption, kBoxError);
        ShowMessageBox("second", texts::kRestartCaption, kBoxInformation);
        SetStatusText("answered");
      });
    });
  });
  ASSERT_TRUE(child.WaitFor(Utf8(u8"[!] エラー")));
  ASSERT_TRUE(child.WaitFor(Utf8(u8"サーバに接続できません。")));
  ASSERT_TRUE(child.WaitFor("[Enter]"));
  EXPECT_FALSE(Contains(child.output(), "second"));
  child.Send("q");
  ASSERT_TRUE(child.WaitFor("[i] VelmoraUpdate"));
  ASSERT_TRUE(child.WaitFor("second"));
  child.Send("\x1b[A");
  ASSERT_TRUE(child.WaitFor("answered"));
  child.Send("q");
  EXPECT_EQ(child.Wait(), 7);
  EXPECT_FALSE(Contains(ScreenAfter(child), "[Enter]"));
}

TEST(TerminalDialogBox, OfAHandlerServesTheDialogMeanwhile) {
  auto child = TerminalChild::OnTerminal([] {
    return RunProgram({.opened =
                           [] {
                             StartWorker([] {
                               while (phase != RunPhase::kNone) StepBar(Control::kOverallBar);
                             });
                             ShowMessageBox("from opened", "box", kBoxPlain);
                             phase = RunPhase::kNone;
                           },
                       .command =
                           [](int) {
                             StartWorker([] { AskToClose(); });
                             ShowMessageBox("never answered", "box", kBoxPlain);
                           }});
  });
  ASSERT_TRUE(child.WaitFor("from opened"));
  ASSERT_TRUE(child.WaitFor("from opened")) << "the bar moves behind the box";
  child.Send("\r");
  child.Send("o");
  EXPECT_EQ(child.Wait(), 7) << "the worker's close ends the dialog and the box with it";
  EXPECT_FALSE(Contains(ScreenAfter(child), "[Enter]"));
}

TEST(TerminalDialogBox, IsReleasedByTheEnd) {
  for (const int signal : {SIGTERM, SIGINT}) {
    auto child = TerminalChild::OnTerminal([] {
      static std::atomic<bool> isReleased = false;
      const int result = RunOnTerminal([] {
        StartWorker([] {
          ShowMessageBox("first", "box", kBoxPlain);
          ShowMessageBox("second", "box", kBoxPlain);
          isReleased = true;
        });
      });
      while (!isReleased) Sleep(1);
      return result;
    });
    ASSERT_TRUE(child.WaitFor("first"));
    child.Signal(signal);
    EXPECT_EQ(child.Wait(), 7);
    EXPECT_FALSE(Contains(ScreenAfter(child), "[Enter]"));
  }
}

TEST(TerminalDialogBox, IsAnsweredByCtrlCWhichCancelsThen) {
  auto child = TerminalChild::OnTerminal([] {
    return RunOnTerminal([] {
      OfferCancel();
      StartWorker([] {
        ShowMessageBox("text", "box", kBoxPlain);
        SetBarRange(Control::kOverallBar, 0, 77);
        Sleep(1'000'000);
      });
    });
  });
  ASSERT_TRUE(child.WaitFor("[Enter]"));
  child.Send("\x03");
  ASSERT_TRUE(child.WaitFor("0 / 77"));
  child.Send("q");
  EXPECT_EQ(child.Wait(), 7);
  EXPECT_TRUE(Contains(ScreenAfter(child), "closed after 1000\n"));
}

TEST(TerminalDialogScreen, IsRedrawnAFewTimesUnderAMillionMoves) {
  constexpr char kRedraw[] = "VELMORA";
  timespec before = {};
  clock_gettime(CLOCK_MONOTONIC, &before);
  auto child = TerminalChild::OnTerminal([] {
    return RunOnTerminal([] {
      StartWorker([] {
        SetBarRange(Control::kFileBar, 0, 1'000'000);
        for (int i = 0; i <= 1'000'000; ++i) SetBarPosition(Control::kFileBar, i);
        SetStatusText("all moved");
      });
    });
  });
  ASSERT_TRUE(child.WaitFor("all moved"));
  child.Send("q");
  EXPECT_EQ(child.Wait(), 7);
  timespec after = {};
  clock_gettime(CLOCK_MONOTONIC, &after);
  const int allowed = (static_cast<int>(after.tv_sec - before.tv_sec) + 1) * 15 + 2;
  EXPECT_LE(CountOf(child.output(), kRedraw), allowed);
  EXPECT_GE(CountOf(child.output(), kRedraw), 2);
}

TEST(TerminalDialogScreen, TellsHowLongADownloadTakes) {
  constexpr std::int32_t kSize = 1'000'000'000;
  auto child = TerminalChild::OnTerminal([] {
    return RunOnTerminal([] {
      OfferCancel();
      SetBarRange(Control::kFileBar, 0, kSize);
      SetBarPosition(Control::kFileBar, kSize);
      SetBarRange(Control::kFileBar, 0, kSize);
      StartWorker([] {
        for (std::int32_t i = 1; true; ++i, Sleep(10)) {
          bodyBytesReceived += 1000;
          if (i > 100) SetBarPosition(Control::kFileBar, i * 1000);
        }
      });
    });
  });
  ASSERT_TRUE(child.WaitFor(" left\r\r\n\x1b[KAll")) << "though the bar stands full from before";
  ASSERT_TRUE(child.WaitFor(" left\r\r\n\x1b[K[u]"));
  child.Send("u");
  ASSERT_TRUE(child.WaitFor("Cancelling"));
  child.Send("q");
  EXPECT_EQ(child.Wait(), 7);
  const std::string screen = ScreenAfter(child);
  EXPECT_TRUE(Contains(screen, " left\nAll")) << screen;
  EXPECT_FALSE(Contains(screen, " left\n(u)")) << "the rest won't be downloaded: " << screen;
}

TEST(TerminalDialogScreen, FitsSmallAndUnknownTerminals) {
  constexpr unsigned short kColumns[] = {20, 0};
  for (const unsigned short columns : kColumns) {
    auto child = TerminalChild::OnTerminal(
        [] {
          return RunOnTerminal(
              [] { SetStatusText(std::string(200, 'x') + "\n" + std::string(200, 'y')); });
        },
        columns, columns == 0 ? 0 : 4);
    const std::size_t width = columns == 0 ? 80 : columns;
    ASSERT_TRUE(child.WaitFor(std::string(width, 'x')));
    child.Send("q");
    EXPECT_EQ(child.Wait(), 7);
    TerminalPicture picture(width, columns == 0 ? 24 : 4);
    picture.Feed(child.output());
    EXPECT_EQ(picture.scrolled(), columns == 0 ? 0 : 1) << "by the line below the block alone";
    EXPECT_FALSE(Contains(child.output(), std::string(width + 1, 'x')));
  }
}

TEST(TerminalDialogScreen, MakesWayForOtherOutput) {
  auto child = TerminalChild::OnTerminal([] {
    int script[2];
    if (pipe(script) != 0) return 1;
    dup2(script[0], STDIN_FILENO);
    const std::string commands = "start\nbogus\nwait\nclose\n";
    if (write(script[1], commands.data(), commands.size()) <= 0) return 2;
    return RunOnTerminal([] { StartWorker([] { ShowMessageBox("text", "caption", kBoxError); }); });
  });
  EXPECT_EQ(child.Wait(), 7);
  const std::string screen = ScreenAfter(child);
  for (const char* const line : {"start: refused, the button is disabled\n",
                                 "unknown command: bogus\n", "caption: text\n"}) {
    EXPECT_EQ(CountOf(screen, line), 1) << screen;
  }
  EXPECT_EQ(CountOf(screen, "VELMORA"), 1) << screen;
}

}  // namespace
}  // namespace velmora::platform
