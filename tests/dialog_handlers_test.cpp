#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "base/texts.h"
#include "engine/update_run.h"
#include "platform/posix/transfer_count.h"
#include "settings/patcher_settings.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"
#include "ui/launch_actions.h"
#include "ui/update_dialog.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

class DialogHandlers : public EngineTest {
 protected:
  // The events of opening and destroying, without those of the run.
  std::string EventsOfALife() const {
    static const std::regex run("^(range|step|position|status|caption|enable 1000|box 40010)");
    handlers_.opened();
    WaitForRunEnd();
    handlers_.destroyed();
    handlers_.destroyed();  // does nothing more
    std::string events;
    for (const std::string& event : Dialog().events) {
      if (!std::regex_search(event, run)) events += (events.empty() ? "" : ", ") + event;
    }
    return events;
  }
  static std::string Launched(const std::string& file, const std::string& directory,
                              const std::string& parameters) {
    return "ShellExecuteEx : File = " + file + ", Directory = " + directory +
           ", Parameters = " + parameters;
  }

  const platform::DialogHandlers handlers_ = UpdateDialogHandlers();
};

TEST_F(DialogHandlers, TellTheWorkAheadWithoutWhatTheCacheVouchesFor) {
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

TEST_F(DialogHandlers, OpenThePageAndStartARun) {
  Settings.InformationUrl = "http://info/";
  EXPECT_EQ(EventsOfALife(),
            "enable 1011 0, enable 1010 0, icon, resizable 0, full screen 1, drop target 0, "
            "registered 0, navigate http://info/, enable 1001 0, release control, release browser");
  ResetDialog();
  Dialog().browser = 0;
  EXPECT_EQ(EventsOfALife(), std::string("enable 1011 0, enable 1010 0, icon, box 0 ") +
                                 texts::kErrorCaption + "|" + texts::kPaneFailed +
                                 ", end 0, enable 1001 0, release control");
}

TEST_F(DialogHandlers, LaunchesAndTheirTexts) {
  const std::string here = fs::current_path().string();
  const std::string above = fs::current_path().parent_path().string();
  const std::string longestId(59, 'i');
  const struct {
    std::string client;
    std::string id;
    std::string directory;
    std::string parameters;
  } games[] = {
      {"NoGame.exe", "", above, "-id "},
      {"\\bin\\NoGame.exe", longestId, here + "\\bin", "-id " + longestId},
      {"\\NoGame.exe", longestId + "i", here, "-id "},
  };
  for (const auto& game : games) {
    ResetDialog();
    fs::remove("session.log");
    Settings.ClientExe = game.client;
    Settings.LaunchId = game.id;
    EXPECT_EQ(handlers_.command(1001), 0);
    EXPECT_EQ(Dialog().events, (Lines{"enable 1009 0", "enable 1001 0", "enable 1007 0", "close"}));
    EXPECT_EQ(LogMessagesWith(".exe"),
              (Lines{"StartGame : Execute " + game.client + " ",
                     Launched("NoGame.exe", game.directory, game.parameters),
                     "Launch failed : File = NoGame.exe : there is no such program"}));
  }
  EXPECT_EQ(LogMessagesWith("Launch id is too long, not handed on : " + longestId).size(), 1U);

  fs::remove("session.log");
  EXPECT_EQ(handlers_.command(1009), 0);
  EXPECT_EQ(handlers_.command(1010), 0);
  EXPECT_EQ(
      LogMessages(),
      (Lines{"ExecOption : Execute VelmoraOption.exe ", Launched("VelmoraOption.exe", here, ""),
             "Launch failed : File = VelmoraOption.exe : there is no such program",
             "ExecOption : Execute dxdiag.exe "}));
}

TEST_F(DialogHandlers, WorkingDirectoriesOfAnySpellingAndLength) {
  // The last byte of a character must not swallow the backslash after it.
  for (const char* name : {"\xE3\x81\x82", "\xE3\x82\xBD", "\xC3\xA9"}) {
    fs::create_directories(std::string(name) + "/Screenshot");
    fs::current_path(name);
    EXPECT_TRUE(HasScreenshots());
    Settings.ClientExe = "\\bin\\NoGame.exe";
    StartGame();
    const std::string here = fs::current_path().string();
    EXPECT_EQ(LogMessagesWith("ShellExecuteEx"),
              Lines{Launched("NoGame.exe", here + "\\bin", "-id ")});
  }
  // Nothing runs in a directory whose name had to be cut.
  const std::string part(200, 'p');
  fs::create_directories(part + "/" + part + "/" + part);
  fs::current_path(part + "/" + part + "/" + part);
  ExecOption();
  ExecScreenshot();
  EXPECT_EQ(LogMessagesWith("ShellExecuteEx"), Lines{Launched("VelmoraOption.exe", "(null)", "")});
}

}  // namespace
}  // namespace velmora::test
