// The terminal dialog: its parts as pure functions, and the whole dialog in child processes that
// have pipes or a terminal.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/texts.h"
#include "platform/clock.h"
#include "platform/dialog.h"
#include "platform/posix/dialog/figures.h"
#include "platform/posix/dialog/model.h"
#include "platform/posix/terminal/lines.h"
#include "platform/posix/terminal/render.h"
#include "platform/posix/terminal/screen.h"
#include "platform/posix/terminal/script.h"
#include "platform/posix/terminal/text.h"
#include "platform/posix/transfer_count.h"
#include "platform/processes.h"
#include "platform/utf8.h"
#include "support/terminal_child.h"
#include "support/terminal_picture.h"

namespace velmora::platform {
namespace {

using namespace dialog;
using namespace terminal;
using test::TerminalChild;
using test::TerminalPicture;
using Lines = std::vector<std::string>;

// Plain literals are code page 932 here; what comes out of the dialog is UTF-8.
std::string Utf8(const char8_t* text) { return reinterpret_cast<const char*>(text); }

// What a terminal shows of `lines`: more rows than lines if some are too wide.
std::string Shown(const Lines& lines, std::size_t columns) {
  TerminalPicture picture(columns, 2 * lines.size());
  for (const auto& line : lines) picture.Feed(line + "\r\n");
  return picture.text().substr(0, picture.text().size() - 1);  // without the cursor's
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

TEST(TerminalText, IsNeverWiderThanMeasured) {
  TerminalPicture picture;
  for (int pair = 0; pair < 0x10000; ++pair) {
    const char bytes[] = {static_cast<char>(pair >> 8), static_cast<char>(pair)};
    const std::string utf8 = ToUtf8({bytes, sizeof bytes});
    ASSERT_LE(CellsOf(utf8), 2u) << pair;
    if (Contains(utf8, "\n")) continue;
    picture.Feed("\r" + utf8);
    ASSERT_LE(static_cast<std::size_t>(picture.cursor().col), CellsOf(utf8)) << pair;
  }
}

TEST(TerminalText, IsCutAndWrappedBetweenCharacters) {
  const std::string text = Utf8(u8"aソｱb");
  const char8_t* const kCuts[] = {u8"", u8"a", u8"a", u8"aソ", u8"aソｱ", u8"aソｱb", u8"aソｱb"};
  for (std::size_t cells = 0; cells < std::size(kCuts); ++cells) {
    EXPECT_EQ(CutToCells(text, cells), Utf8(kCuts[cells])) << cells;
  }
  EXPECT_EQ(WrapToCells("abcde\n\nf", 2), (Lines{"ab", "cd", "e", "", "f"}));
  EXPECT_EQ(WrapToCells(Utf8(u8"aソb"), 1), (Lines{"a", "", "b"}));
}

TEST(TerminalBar, MovesAsOnWindows) {
  const auto moved = [](Bar bar, std::int64_t to) { return SetPosition(bar, to), bar.position; };
  EXPECT_EQ(moved(Bar(), 150), 100);
  EXPECT_EQ(moved(Bar(), -1), 0);
  const auto ranged = [](Bar bar, int low, int high) {
    return SetRange(bar, low, high), bar.position;
  };
  EXPECT_EQ(ranged({0, 100, 80, 1}, 0, 50), 50);
  const auto stepped = [](Bar bar) { return StepOnce(bar), bar.position; };
  EXPECT_EQ(stepped({0, 3, 2, 1}), 3);
  EXPECT_EQ(stepped({0, 3, 3, 1}), 0);
  EXPECT_EQ(stepped({0, INT32_MAX, INT32_MAX, INT32_MAX}), 0);

  EXPECT_EQ(PercentOf({0, 1000, 999, 1}), 99);
  EXPECT_EQ(PercentOf({0, 0, 0, 1}), 0);
  EXPECT_EQ(PercentOf({INT32_MIN, INT32_MAX, 0, 1}), 50);
}

TEST(TerminalRender, FitsEveryWidth) {
  DialogModel model = RunningModel();
  model.status = std::string(texts::kConnecting) + std::string(300, 'x');
  const BoxText box{texts::kNoServer, texts::kErrorCaption, kBoxError};
  for (std::size_t columns = 1; columns <= 200; ++columns) {
    Lines lines = RenderBlock(model, {123456789, 12345, 123456}, columns);
    for (const auto& line : RenderBox(box, columns)) lines.push_back(line);
    const std::string shown = Shown(lines, columns);
    EXPECT_EQ(CountOf(shown, "\n"), std::ssize(lines)) << columns;
    if (columns < 20) continue;
    for (const char* const key : {"[u]", "(s)", "(r)", "[o]", "[d]", "[p]", "[q]"}) {
      EXPECT_TRUE(Contains(shown, key)) << columns << key;
    }
  }
}

TEST(TerminalRender, ShowsAllOfTheDialog) {
  const Lines lines = RenderBlock(RunningModel(), {2048, 2, 75}, 80);
  EXPECT_EQ(Shown(lines, 80),
            Utf8(u8"VELMORA アップデート  1.12\n"
                 u8"確認中  3 / 12 \n"
                 u8"data\\a.pak\n"
                 u8"File  50 %  [##########----------]  4.0 KiB / 8.0 KiB  2.0 KiB/s  0:02 left\n"
                 u8"All   25 %  [#####---------------]  3 / 12  1:15 left\n"
                 u8"[u] CancelUpdate (s) ゲーム開始 (r) 再チェック [o] ゲームオプション設定\n"
                 u8"[d] DirectX診断 [p] スクリーンショット [q] close\n"));
  EXPECT_TRUE(Contains(lines[5], Utf8(u8" \x1b[2m(s) ゲーム開始\x1b[0m ")));

  const std::pair<std::size_t, const char*> kNarrow[] = {
      {45,
       "File  50 %  4.0 KiB / 8.0 KiB  2.0 KiB/s\n"
       "All   25 %  [##-------]  3 / 12  1:15:00 left"},
      {39, "File  50 %  [###---]  4.0 KiB / 8.0 KiB\nAll   25 %  3 / 12  1:15:00 left"},
      {20, "File  50 %  [###---]\nAll   25 %  3 / 12"},
  };
  for (const auto& [columns, bars] : kNarrow) {
    const Lines narrow = RenderBlock(RunningModel(), {2048, 2, 4500}, columns);
    EXPECT_EQ(narrow[3] + "\n" + narrow[4], bars) << columns;
  }

  const Lines idle = RenderBlock(DialogModel(), {}, 80);
  EXPECT_EQ(idle.size(), lines.size()) << "a block that changes its height jumps";
  EXPECT_EQ(idle[3], "File   0 %  [--------------------]  0 B / 100 B");
}

TEST(TerminalRender, KeepsTheBoxOnALowTerminal) {
  const Lines block = {"1", "2", "3", "4"};
  EXPECT_EQ(Arrange(block, {"a", "b"}, 10), (Lines{"1", "2", "3", "4", "a", "b"}));
  EXPECT_EQ(Arrange(block, {"a", "b"}, 3), (Lines{"1", "a", "b"}));
  EXPECT_EQ(Arrange(block, {"-", "a", "b", "key"}, 2), (Lines{"a", "key"}));
  EXPECT_EQ(Arrange(block, {}, 2), (Lines{"1", "2"}));
}

TEST(TerminalFigures, ShowRateAndTimeLeftOfDownloadsOnly) {
  const auto text = [](std::optional<std::int64_t> figure) {
    return figure ? std::to_string(*figure) : "-";
  };
  const struct {
    bool isRunning;
    Progress progress;
    const char* figures;  // rate, time left of the file, of all
    const char* why;
  } kMoments[] = {
      {true, {10, 500, 0, {}}, "- - -", "the bytes of the list don't count"},
      {true, {10.1, 500, 8000, 20000}, "- - -", "too early for a rate"},
      {true, {11.1, 1500, 7000, 20000}, "909 8 -", "too early for the whole"},
      {true, {14.1, 4500, 4000, 20000}, "1000 4 24", "the first file, a large one"},
      {true, {18.1, 8500, 0, 20000}, "1000 - 20", "between two files"},
      {true, {22.1, 8500, 10000, 10000}, "- - -", "a long pause"},
      {true, {26.1, 12500, 6000, 10000}, "1000 6 19", "the pause counts for the rest"},
      {true, {40.1, 28500, 0, 0}, "1143 - -", "nothing is left"},
      {true, {60, 28500, 100000, 0}, "- - -", "the next file"},
      {true, {63.5, 28501, 99999, 0}, "- - -", "a trickle is no rate"},
      {false, {64, 30000, 0, 0}, "- - -", "no run"},
      {true, {65, 30000, 1000, 100000}, "- - -", "a re-check: most of the files are good"},
      {true, {67, 30000, 1000, 50000}, "- - -", "nothing was downloaded"},
  };
  FigureKeeper keeper;
  for (const auto& c : kMoments) {
    const Figures figures = keeper.Update(c.isRunning, c.progress);
    EXPECT_EQ(text(figures.bytesPerSecond) + " " + text(figures.fileSecondsLeft) + " " +
                  text(figures.secondsLeft),
              c.figures)
        << c.why;
  }
}

TEST(TerminalScreen, RedrawsInPlace) {
  Screen screen;
  const ScreenSize size{10, 6};
  TerminalPicture picture(size.columns, size.rows);
  picture.Feed("$ velmora\r\n");
  const Lines kFrames[] = {
      {"one", "two", "three"}, {"0123456789", "b"}, {"a", "b", "c", "d"}, {"x"}};
  for (const Lines& frame : kFrames) {
    picture.Feed(screen.Show(frame, size));
    EXPECT_EQ(picture.text(), "$ velmora\n" + Shown(frame, size.columns));
    EXPECT_EQ(picture.cursor().row, std::ssize(frame));
    EXPECT_FALSE(picture.isCursorShown());
    EXPECT_EQ(screen.Show(frame, size), "") << "nothing new, nothing written";
  }
  picture.Feed(screen.Erase());
  EXPECT_TRUE(picture.isCursorShown());
  picture.Feed("note\r\n");
  picture.Feed(screen.Show({"x", "y"}, size));
  picture.Feed(screen.Leave());
  EXPECT_EQ(picture.text(), "$ velmora\nnote\nx\ny\n\n");
  EXPECT_TRUE(picture.isCursorShown());
  EXPECT_EQ(picture.scrolled(), 0);
}

TEST(TerminalScreen, StaysInPlaceWhenTheTerminalBecomesNarrow) {
  for (const std::size_t rows : {std::size_t{9}, std::size_t{4}}) {
    Screen screen;
    EXPECT_NE(screen.Show({"0123456789", "b", "\x1b[2m01234567\x1b[0m"}, {10, rows}), "");
    // Most terminals wrap the lines that have become too wide. The cursor stays with its line.
    TerminalPicture picture(4, rows);
    picture.Feed("$ velmora\r\n0123456789\r\nb\r\n01234567\r\x1b[A");
    picture.Feed(screen.Show({"0123", "b"}, {4, rows}));
    EXPECT_EQ(picture.text(), rows == 9 ? "$ ve\nlmor\na\n0123\nb\n" : "0123\nb\n");
    EXPECT_EQ(picture.scrolled(), rows == 9 ? 0 : 5) << "no more than the wrapping scrolls out";
  }
}

TEST(TerminalLines, ReportEachVisibleChangeOnce) {
  DialogModel model;
  ButtonState& update = *model.FindButton(Control::kUpdateButton);
  const std::pair<std::function<void()>, const char8_t*> kChanges[] = {
      {[] {}, u8""},
      {[&] { model.status = RunningModel().status; }, u8"status: 確認中  3 / 12 | data\\a.pak\n"},
      {[&] { model.status += "\n"; }, u8""},
      {[&] { model.status = "\n\na \n\nb"; }, u8"status:  |  | a |  | b\n"},
      {[&] { SetRange(model.fileBar, 0, 8192); }, u8"file bar: 0 % (0 / 8192)\n"},
      {[&] { SetPosition(model.fileBar, 81); }, u8""},
      {[&] { SetPosition(model.fileBar, 4096); }, u8"file bar: 50 % (4096 / 8192)\n"},
      {[&] { SetPosition(model.fileBar, 4097); }, u8""},
      {[&] { SetRange(model.overallBar, 0, 1200); }, u8"overall bar: 0 % (0 / 1200)\n"},
      {[&] { SetPosition(model.overallBar, 1); }, u8"overall bar: 0 % (1 / 1200)\n"},
      {[&] { update.enabled = true; }, u8"Update button: enabled\n"},
      {[&] { update.caption = "CancelUpdate"; }, u8"Update button: CancelUpdate\n"},
      {[&] { model.status = "1"; }, nullptr},  // replaced before anybody looks
      {[&] { model.status = "2", update.enabled = false; },
       u8"status: 2\nUpdate button: disabled\n"},
  };
  LineReport report;
  for (const auto& [change, expected] : kChanges) {
    change();
    report.Note(model);
    if (expected == nullptr) continue;
    std::string noted = report.Take();
    report.NoteFigures(model);
    EXPECT_EQ(ToUtf8(noted + report.Take()), Utf8(expected));
  }
}

TEST(TerminalScript, IsSplitIntoLinesHoweverItArrives) {
  const std::string longest(kLongestScriptLine, 'x');
  const std::string script = "update\n  start \t\r\n\n \r\nun known\n" + longest + "\n" + longest +
                             "x\n" + longest + longest + longest + "\nclose";
  for (const std::size_t size : {std::size_t{1}, std::size_t{7}, script.size()}) {
    ScriptInput input;
    for (std::size_t at = 0; at < script.size(); at += size) input.Feed(script.substr(at, size));
    input.End();
    Lines lines;
    while (input.HasLine()) {
      const ScriptLine line = input.Next();
      lines.push_back(line.tooLong ? "<too long>" : line.text);
    }
    EXPECT_EQ(lines, (Lines{"update", "start", "un known", longest, "<too long>", "<too long>",
                            "close", "wait", "close"}));
  }
}

std::atomic<RunPhase> phase = RunPhase::kNone;

void StartWorker(const std::function<void()>& work) {
  if (phase == RunPhase::kNone) phase = RunPhase::kBusy;
  std::thread([work] {
    work();
    phase = RunPhase::kNone;
  }).detach();
}

void Sleep(int milliseconds) { usleep(static_cast<useconds_t>(milliseconds) * 1000); }

// Writes to the output without the dialog.
void Say(const std::string& text, int to = STDOUT_FILENO) {
  EXPECT_EQ(write(to, text.data(), text.size()), std::ssize(text));
}

void OfferCancel() {
  SetButtonCaption(Control::kUpdateButton, "CancelUpdate");
  EnableControl(Control::kUpdateButton, true);
  phase = RunPhase::kUpdating;
}

// The program around the dialog. Its status names the commands so far; closed, it ends with 7.
struct Program {
  std::function<void()> opened = [] {};
  std::function<void(int)> command = [commands = std::string()](int control) mutable {
    commands += " " + std::to_string(control);
    SetStatusText("commands" + commands);
    if (control == 1000) EnableControl(Control::kUpdateButton, false);
  };
  std::function<void()> close = [] { EndUpdateDialog(7); };
};

int RunProgram(const Program& runs) {
  static Program program;
  program = runs;
  return RunUpdateDialog({[] { program.opened(); },
                          [](int control) { return program.command(control), 0; },
                          [] { program.close(); }, [] {}, [] { return phase.load(); },
                          [] { return std::int64_t{0}; }});
}

TerminalChild InPipes(const Program& runs) {
  return TerminalChild::WithPipes([&] { return RunProgram(runs); });
}

// All that the child wrote, and how it ended.
std::string Ending(TerminalChild& child) {
  const int code = child.Wait();
  return child.output() + "| " + child.errors() + "| " + std::to_string(code);
}

TEST(TerminalDialogScript, RunsCommandsInOrderBetweenExactLines) {
  Program runs;
  runs.opened = [] {
    SetStatusText("opened\n");
    ShowMessageBox(texts::kPaneFailed, texts::kErrorCaption, kBoxPlain);
  };
  runs.command = [](int control) {
    Say("command " + std::to_string(control) + "\n");
    StartWorker([] {
      SetStatusText(texts::kCompleted);
      ShowMessageBox("a\nb", texts::kErrorCaption, kBoxError);
      Say("answered\n");
      EnableControl(Control::kStartGameButton, true);
    });
  };
  auto child = InPipes(runs);
  child.Send("start\r\nupdate\nwait\n  start  \n\nwait\nbogus\x1b command\nclose\nupdate\n");
  EXPECT_EQ(Ending(child), Utf8(u8"status: opened\n"
                                u8"start: refused, the button is disabled\n"
                                u8"command 1000\n"
                                u8"status: アップデート完了\n"
                                u8"answered\n"
                                u8"Start Game button: enabled\n"
                                u8"command 1001\n"
                                u8"answered\n"
                                u8"| エラー: インフォメーションウインドウの初期化に失敗しました\n"
                                u8"エラー: a | b\n"
                                u8"エラー: a | b\n"
                                u8"unknown command: bogus? command\n"
                                u8"| 7"));
}

TEST(TerminalDialogScript, EndOfInputWaitsForTheRunAndCloses) {
  Program runs;
  runs.opened = [] { StartWorker([] { Sleep(300), SetStatusText("over"); }); };
  auto ended = InPipes(runs);
  ended.Send("options");
  ended.CloseInput();
  EXPECT_EQ(Ending(ended), "status: commands 1009\nstatus: over\n| | 7");

  auto unread = InPipes(runs);
  unread.CloseOutput();
  unread.CloseInput();
  EXPECT_EQ(unread.Wait(), 7);
}

TEST(TerminalDialogScript, LosesNothingToASlowReaderAndStillServesSignals) {
  constexpr int kLines = 30'000;  // more than a pipe holds
  int closed[2];
  ASSERT_EQ(pipe(closed), 0);
  Program runs;
  runs.opened = [] {
    for (int i = 0; i < kLines; ++i) SetButtonCaption(Control::kUpdateButton, std::to_string(i));
  };
  runs.close = [&] {
    EndUpdateDialog(7);
    Say("!", closed[1]);
  };
  auto child = InPipes(runs);
  close(closed[1]);
  ASSERT_TRUE(child.WaitFor("button: 0\n"));
  child.Signal(SIGTERM);
  char mark = 0;
  EXPECT_EQ(read(closed[0], &mark, 1), 1) << "closed while nobody reads";
  close(closed[0]);
  EXPECT_EQ(child.Wait(), 7);
  EXPECT_EQ(CountOf(child.output(), "\n"), kLines);
  EXPECT_TRUE(child.output().ends_with("button: " + std::to_string(kLines - 1) + "\n"));
}

TerminalChild OnTerminal(const std::function<void()>& opened, unsigned short columns = 80,
                         unsigned short rows = 24, const char* kind = "xterm") {
  return TerminalChild::OnTerminal([&] { return RunProgram({opened}); }, columns, rows, kind);
}

// What the terminal shows when the child has ended, with `code`. It is as it was before.
std::string ScreenAtEnd(TerminalChild& child, int code = 7) {
  EXPECT_EQ(child.Wait(), code);
  EXPECT_TRUE(child.IsTerminalNormal());
  EXPECT_EQ(child.output().find('\0'), std::string::npos);  // a terminal wouldn't show it
  TerminalPicture picture;
  picture.Feed(child.output());
  EXPECT_TRUE(picture.isCursorShown());
  EXPECT_EQ(picture.scrolled(), 0);
  EXPECT_EQ(picture.cursor().row + 1, CountOf(picture.text(), "\n"));
  EXPECT_TRUE(picture.text().ends_with("\n\n")) << "the cursor is below the block";
  return picture.text();
}

// Types each second text as soon as the first is shown; then as ScreenAtEnd.
std::string Play(TerminalChild& child,
                 const std::vector<std::pair<std::string, std::string>>& steps) {
  for (const auto& [shown, typed] : steps) {
    if (!child.WaitFor(shown)) return {};
    EXPECT_FALSE(child.IsTerminalNormal()) << shown;
    child.Send(typed);
  }
  return ScreenAtEnd(child);
}

TEST(TerminalDialogKeys, PressEnabledButtons) {
  auto child = OnTerminal([] {});
  const std::string screen = Play(child, {{"[q] close", "usrx\x1b[1;5p\x1bOd\x1bq\x1b[@o"},
                                          {"commands 1009", "\x1b[3~p"},
                                          {"commands 1009 1011", "q"}});
  EXPECT_TRUE(screen.starts_with(Utf8(u8"VELMORA アップデート  1.12\ncommands 1009 1011\n")));
  EXPECT_EQ(CountOf(screen, "VELMORA"), 1) << screen;
}

TEST(TerminalDialogKeys, CtrlCAnswersABoxAndCancelsFirstAndClosesThen) {
  auto child = OnTerminal([] {
    OfferCancel();
    StartWorker([] {
      ShowMessageBox("text", "box", kBoxPlain);
      SetBarRange(Control::kOverallBar, 0, 77);
      Sleep(1'000'000);
    });
  });
  const std::string screen = Play(child, {{"[Enter]", "\x03"},
                                          {"0 / 77", ""},
                                          {"Cancelling when this file is done.", "o"},
                                          {"commands 1000 1009", ""},
                                          {"Ctrl-C again closes", "\x03"}});
  EXPECT_FALSE(Contains(screen, "Cancelling"));
}

TEST(TerminalDialogKeys, WorkWithLinesOnAnUnknownTerminal) {
  for (const char* const kind : {static_cast<const char*>(nullptr), "dumb", "no-such-terminal"}) {
    auto child = OnTerminal(OfferCancel, 80, 24, kind);
    Play(child, {{"keys: u update, s start", ""},
                 {"Update button: CancelUpdate", "u"},
                 {"Cancelling when this file is done. | Ctrl-C again", "q"}});
    EXPECT_FALSE(Contains(child.output(), "\x1b"));
  }
}

TEST(TerminalDialogKeys, AnswerABoxWithoutADialog) {
  auto child =
      TerminalChild::OnTerminal([] { return ShowStartBox("text", "caption", kBoxError), 7; });
  Play(child, {{"caption: text\r\n[Enter]", "x"}});
}

TEST(TerminalDialogKeys, SignalsThatEndReleaseBoxesAndLeaveTheTerminalAsItWas) {
  for (const int signalled : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT, SIGFPE}) {
    const bool isServed = signalled == SIGINT || signalled == SIGTERM || signalled == SIGHUP;
    auto child = TerminalChild::OnTerminal([&] {
      // Sanitizers have handlers of their own for some of these.
      if (!isServed) signal(signalled, SIG_DFL);
      const int result = RunProgram({[] {
        StartWorker([] {
          ShowMessageBox("first", "box", kBoxPlain);
          ShowMessageBox("second", "box", kBoxPlain);
        });
      }});
      while (phase != RunPhase::kNone) Sleep(1);
      return result;
    });
    ASSERT_TRUE(child.WaitFor("[Enter]"));
    child.Signal(signalled);
    const std::string screen = ScreenAtEnd(child, isServed ? 7 : 1000 + signalled);
    EXPECT_NE(Contains(screen, "[Enter]"), isServed) << signalled;
  }
}

TEST(TerminalDialogBox, WaitsForAKeyThatAnswersItAlone) {
  Program runs;
  runs.opened = [] {
    StartWorker([] {
      ShowMessageBox(texts::kNoServer, texts::kErrorCaption, kBoxError);
      ShowMessageBox("second", texts::kRestartCaption, kBoxInformation);
      SetStatusText("answered");
    });
  };
  runs.command = [](int) {
    ShowMessageBox("from a handler", "box", kBoxPlain);
    StartWorker([] { AskToClose(); });
    ShowMessageBox("never answered", "box", kBoxPlain);
  };
  // A terminal that doesn't know its size counts as one of 80 by 24.
  auto child = TerminalChild::OnTerminal([&] { return RunProgram(runs); }, 0, 0);
  ASSERT_TRUE(child.WaitFor(Utf8(u8"[!] エラー")));
  EXPECT_FALSE(Contains(child.output(), "second"));
  const std::string screen = Play(child, {{"[Enter]", "q"},
                                          {"[i] VelmoraUpdate", ""},
                                          {"second", "\x1b[A"},
                                          {"answered", "o"},
                                          {"from a handler", "\r"}});
  EXPECT_FALSE(Contains(screen, "[Enter]")) << "the close ends the dialog and the box with it";
}

TEST(TerminalDialogScreen, ShowsHowLongADownloadTakesInAFewRedraws) {
  const std::uint32_t start = TickCount();
  auto child = OnTerminal([] {
    constexpr std::int32_t kSize = 1'000'000'000;
    OfferCancel();
    SetBarRange(Control::kFileBar, 0, kSize);
    SetBarPosition(Control::kFileBar, kSize);
    SetBarRange(Control::kFileBar, 0, kSize);  // the next file; the bar is still full
    StartWorker([] {
      for (std::int32_t i = 1; true; ++i, Sleep(1)) {
        bodyBytesReceived += 100;
        if (i > 1000) SetBarPosition(Control::kFileBar, i * 100);
      }
    });
  });
  const std::string screen = Play(
      child, {{" left\r\r\n\x1b[KAll", ""}, {" left\r\r\n\x1b[K[u]", "u"}, {"Cancelling", "q"}});
  EXPECT_TRUE(Contains(screen, " left\nAll")) << screen;
  EXPECT_FALSE(Contains(screen, " left\n(u)")) << "the rest won't be downloaded: " << screen;
  EXPECT_LE(CountOf(child.output(), "VELMORA"), (TickCount() - start) * 15 / 1000 + 2);
}

TEST(TerminalDialogScreen, FitsASmallTerminal) {
  auto child = OnTerminal([] { SetStatusText(std::string(200, 'x')); }, 20, 4);
  ASSERT_TRUE(child.WaitFor(std::string(20, 'x')));
  child.Send("q");
  EXPECT_EQ(child.Wait(), 7);
  TerminalPicture picture(20, 4);
  picture.Feed(child.output());
  EXPECT_EQ(picture.scrolled(), 1) << "by the line below the block alone";
}

}  // namespace
}  // namespace velmora::platform
