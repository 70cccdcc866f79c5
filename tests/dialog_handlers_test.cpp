#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/texts.h"
#include "engine/update_run.h"
#include "engine/update_state.h"
#include "platform/posix/transfer_count.h"
#include "settings/patcher_settings.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"
#include "ui/launch_actions.h"
#include "ui/update_dialog.h"

namespace velmora::test {
namespace {

using Lines = std::vector<std::string>;

class DialogHandlers : public EngineTest {
 protected:
  const platform::DialogHandlers handlers_ = UpdateDialogHandlers();

  Lines EventsOfOpening() {
    handlers_.opened();
    WaitForRunEnd();
    Lines events = Dialog().events;
    // Those of the run begin with its first operation; the control is given back beside them.
    std::erase_if(events, [](const std::string& event) {
      return event.starts_with("range") || event.starts_with("step") ||
             event.starts_with("position") || event.starts_with("status") ||
             event.starts_with("caption") || event.starts_with("enable 1000") ||
             event.starts_with("box 40010");
    });
    return events;
  }
};

const Lines kBrowserStarted = {"icon",          "resizable 0",  "full screen 1",
                               "drop target 0", "registered 0", "navigate http://info/"};

TEST_F(DialogHandlers, TellTheWorkAheadWithoutWhatIsVouchedFor) {
  std::vector<std::int64_t> ahead;
  const auto run = [&](const std::string& list) {
    const std::int64_t before = platform::bodyBytesReceived;
    ahead.clear();
    ResetDialog();
    Dialog().onEvent = [&](const std::string& event) {
      if (event == "stepit 1002") ahead.push_back(handlers_.bytesAhead());
    };
    Serve({{"/hashlist.dat", list}, {"/a", "1"}, {"/bb", "22"}, {"/ccc", "333"}, {"/vouch", "5"}});
    EXPECT_TRUE(Run());
    return platform::bodyBytesReceived - before - static_cast<std::int64_t>(list.size());
  };
  const std::string vouched = FileLine("a", "1") + FileLine("vouch", "5");
  EXPECT_EQ(run(vouched), 2);
  EXPECT_EQ(ahead, (std::vector<std::int64_t>{1, 0}));

  WriteFile("dddd", "4444");
  EXPECT_EQ(run(vouched + FileLine("bb", "22") + FileLine("ccc", "333") + FileLine("dddd", "4444")),
            2 + 3);
  EXPECT_EQ(ahead, (std::vector<std::int64_t>{-1, 3 + 4, 4, 0, 0}));
}

TEST_F(DialogHandlers, OpeningTestsButtonsOpensThePageAndStartsARun) {
  Settings.InformationUrl = "http://info/";
  Lines expected = {"enable 1011 0", "enable 1010 0"};
  expected.insert(expected.end(), kBrowserStarted.begin(), kBrowserStarted.end());
  expected.insert(expected.end(), {"enable 1001 0", "release control"});
  EXPECT_EQ(EventsOfOpening(), expected);
  handlers_.destroyed();
  EXPECT_EQ(Dialog().events.back(), "release browser");
  const std::size_t count = Dialog().events.size();
  handlers_.destroyed();
  EXPECT_EQ(Dialog().events.size(), count);

  // Anything named Screenshot will do.
  ResetDialog();
  WriteFile("Screenshot", "x");
  EXPECT_EQ(EventsOfOpening()[0], "enable 1010 0");
  handlers_.destroyed();
}

TEST_F(DialogHandlers, PaneWithoutControlOrBrowser) {
  Dialog().paneControl = 0;
  EXPECT_EQ(EventsOfOpening(), (Lines{"enable 1011 0", "enable 1010 0", "icon", "enable 1001 0"}));
  handlers_.destroyed();

  ResetDialog();
  Dialog().browser = 0;
  EXPECT_EQ(EventsOfOpening(),
            (Lines{"enable 1011 0", "enable 1010 0", "icon",
                   std::string("box 0 ") + texts::kErrorCaption + "|" + texts::kPaneFailed, "end 0",
                   "enable 1001 0", "release control"}));
  handlers_.destroyed();
  EXPECT_TRUE(EventsOf("release browser").empty());
}

TEST_F(DialogHandlers, CommandsWithoutAMeaning) {
  for (const int control : {2, 999, 1002, 1003, 1004, 1005, 1006, 1008, 1012, 1019}) {
    EXPECT_EQ(handlers_.command(control), 0);
  }
  EXPECT_TRUE(Dialog().events.empty());
  EXPECT_EQ(ReadFile("session.log"), "(none)");
}

TEST_F(DialogHandlers, CloseLogsAndEnds) {
  handlers_.close();
  EXPECT_EQ(Dialog().events, Lines{"end 1"});
  EXPECT_EQ(LogMessages(), Lines{"Destroying Window : "});
}

TEST_F(DialogHandlers, LaunchesAndTheirTexts) {
  const std::string here = std::filesystem::current_path().string();
  const std::string above = std::filesystem::current_path().parent_path().string();
  const auto shell = [](const std::string& file, const std::string& directory,
                        const std::string& parameters) {
    return "ShellExecuteEx : File = " + file + ", Directory = " + directory +
           ", Parameters = " + parameters;
  };
  const struct {
    std::string client;
    std::string id;
    std::string file;
    std::string directory;
    std::string parameters;
  } games[] = {
      {"NoGame.exe", "", "NoGame.exe", above, "-id "},
      {"NoGame.exe", "id7", "NoGame.exe", above, "-id id7"},
      {"\\NoGame.exe", "x", "NoGame.exe", here, "-id x"},
      {"\\bin\\NoGame.exe", "x", "NoGame.exe", here + "\\bin", "-id x"},
      {"NoGame.exe", std::string(59, 'i'), "NoGame.exe", above, "-id " + std::string(59, 'i')},
      {"NoGame.exe", std::string(60, 'i'), "NoGame.exe", above, "-id "},
  };
  for (const auto& game : games) {
    ResetDialog();
    std::filesystem::remove("session.log");
    Settings.ClientExe = game.client;
    Settings.LaunchId = game.id;
    EXPECT_EQ(handlers_.command(1001), 0);
    EXPECT_EQ(Dialog().events, (Lines{"enable 1009 0", "enable 1001 0", "enable 1007 0", "close"}));
    Lines messages = LogMessages();
    std::erase_if(messages, [](const std::string& m) { return m.starts_with("Launch id is"); });
    EXPECT_EQ(messages, (Lines{"StartGame : Execute " + game.client + " ",
                               shell(game.file, game.directory, game.parameters),
                               "Launch failed : File = NoGame.exe : there is no such program"}));
  }

  ResetDialog();
  std::filesystem::remove("session.log");
  EXPECT_EQ(handlers_.command(1009), 0);
  EXPECT_EQ(handlers_.command(1010), 0);
  EXPECT_EQ(LogMessages(),
            (Lines{"ExecOption : Execute VelmoraOption.exe ", shell("VelmoraOption.exe", here, ""),
                   "Launch failed : File = VelmoraOption.exe : there is no such program",
                   "ExecOption : Execute dxdiag.exe "}));
  EXPECT_FALSE(ExecDxDiag());
  EXPECT_TRUE(Dialog().events.empty());
}

// The second byte of the folder's last character must not swallow the backslash behind it.
TEST_F(DialogHandlers, FoldersOfTheSystemsOwnSpelling) {
  for (const char* name : {"\xE3\x81\x82", "\xE3\x82\xBD", "\xC3\xA9"}) {
    SCOPED_TRACE(name);
    ResetDialog();
    std::filesystem::create_directories(std::string(name) + "/Screenshot");
    std::filesystem::current_path(name);
    const std::string here = std::filesystem::current_path().string();
    EXPECT_TRUE(HasScreenshots());
    Settings.ClientExe = "\\bin\\NoGame.exe";
    StartGame();
    ExecOption();
    EXPECT_EQ(LogMessagesWith("Directory = " + here + "\\bin, ").size(), 1U);
    EXPECT_EQ(LogMessagesWith("Directory = " + here + ", ").size(), 1U);
    std::filesystem::current_path("..");
  }
}

// Where the working directory doesn't fit, nothing runs in a cut one.
TEST_F(DialogHandlers, WorkingDirectoryBeyondItsRoom) {
  const auto before = std::filesystem::current_path();
  const std::string part(200, 'p');
  std::filesystem::create_directories(part + "/" + part + "/" + part);
  std::filesystem::current_path(part + "/" + part + "/" + part);
  ExecOption();
  ExecScreenshot();
  EXPECT_EQ(LogMessagesWith("ShellExecuteEx"),
            Lines{"ShellExecuteEx : File = VelmoraOption.exe, Directory = (null), Parameters = "});
  std::filesystem::current_path(before);
}

}  // namespace
}  // namespace velmora::test
