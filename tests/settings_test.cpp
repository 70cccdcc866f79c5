#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "process/command_line.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"
#include "settings/session_log.h"
#include "settings/settings_store.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

class SettingsStore : public EngineTest {
 protected:
  static void Load(const std::string& content) {
    WriteFile("VelmoraUpdate.dat", "[Setting]\r\n" + content);
    Settings = PatcherSettings();
    LoadSettings();
  }
  static std::string Server() {
    return Settings.ServerHost + ":" + std::to_string(Settings.ServerPort) + Settings.DataPath;
  }
};

TEST_F(SettingsStore, ServerAndMirrors) {
  const auto mirrors = [](std::vector<int> numbers) {
    std::string keys;
    for (int n : numbers) keys += "BaseURL" + std::to_string(n) + "=http://127.0.0.9/m?q\r\n";
    return keys;
  };
  const struct {
    std::string content;
    std::string server;
    std::size_t mirrors = 0;
  } cases[] = {
      {"ServerAddress=host.invalid", "host.invalid:0"},
      {"ServerAddress=host.invalid:8080", "host.invalid:8080"},
      {"ServerAddress=host.invalid: 80", "host.invalid:0"},
      {"ServerAddress=host.invalid:81:82", "host.invalid:81"},
      {"ServerAddress=host.invalid:+7x", "host.invalid:7"},
      {"Data=" + std::string(300, 'd'), ":0" + std::string(255, 'd')},
      // A mirror replaces host, path and port; a URL without a port has its scheme's.
      {"ServerAddress=a:8080\r\nData=/d\r\n" + mirrors({1}), "127.0.0.9:80/m", 1},
      {"BaseURL1=http://127.0.0.9:81/\r\n", "127.0.0.9:81/", 1},
      {mirrors({1, 2, 4}), "127.0.0.9:80/m", 2},
      {mirrors({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}), "127.0.0.9:80/m", 10},
      {"BaseURL1=no URL\r\nBaseURL2=http:///m\r\n" + mirrors({3}), "127.0.0.9:80/m", 1},
      // Any scheme will do, and one without a port of its own has none.
      {"BaseURL1=az09+-.://127.0.0.9/m\r\n", "127.0.0.9:0/m", 1},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.content);
    Load(test.content);
    EXPECT_EQ(Server(), test.server);
    EXPECT_EQ(Mirrors.count, test.mirrors);
  }
}

TEST_F(SettingsStore, OtherKeysDefaultsAndReservedNames) {
  const auto rest = [] {
    return Settings.FTPUserName + "," + Settings.FTPPassword + "," + Settings.GameServer + "," +
           Settings.InformationUrl + "," + Settings.DataFile;
  };
  Load("FTPUserName=kol\nFTPPassword=p\nGameServer=g\nInformation=i\nDataFile=l\n");
  EXPECT_EQ(rest(), "kol,p,g,i,l");
  EXPECT_EQ(Settings.SettingsPath, "./VelmoraUpdate.dat");
  for (const std::string name : {"KOL", "MIRE", "TUV", "SEB", "OSKA", "KOLA", "KO"}) {
    Load("FTPUserName=" + name);
    EXPECT_EQ(rest(), (name.starts_with("KO") && name != "KOL" ? name : "") + ",,,,hashlist.dat");
  }
  fs::remove("VelmoraUpdate.dat");
  EXPECT_TRUE(LoadSettings());
  EXPECT_EQ(Server() + rest(), ":0,,,,hashlist.dat");
}

TEST_F(SettingsStore, EveryMirrorGetsItsTurn) {
  WriteFile("VelmoraUpdate.dat", "[Setting]\nBaseURL1=http://h/a\nBaseURL2=http://h/b\n");
  bool chosen[2] = {};
  for (int i = 0; i < 2000 && !(chosen[0] && chosen[1]); ++i) {
    SelectMirror();
    chosen[Settings.DataPath == "/b" ? 1 : 0] = true;
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  EXPECT_TRUE(chosen[0] && chosen[1]);
}

// The probe asks on port 80 of the settings' host, whatever else the settings say.
TEST_F(SettingsStore, EnableCdnRedirects) {
  const std::string url = "http://cdn.invalid:8080/files?x";
  const std::string redirected = "cdn.invalid:80/files";
  const std::string none = "127.0.0.80:8080/d";
  const struct {
    Reply reply;
    std::string server;
    std::size_t requests = 1;  // at most
  } cases[] = {
      {Ok(url), redirected},
      {Raw("Content-Length: 300\r\n", url), redirected},  // closed early
      {Raw("Content-Length: 30\r\n", "", Reply::End::kReset), none},
      {Status(404, "", url), none},
      {Ok(""), none},
      {Raw("", url), none},
      {Raw("Content-Length: -3\r\n", url), none, 2},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.reply.bytes);
    LoopbackServer redirector([&test](const ServedRequest&) { return test.reply; }, 80,
                              "127.0.0.80");
    if (!redirector.IsListening()) GTEST_SKIP() << "port 80 of 127.0.0.80 is unavailable";
    Load("ServerAddress=127.0.0.80:8080\r\nData=/d\r\n");
    EXPECT_EQ(Server(), test.server);
    const auto requests = redirector.Requests();
    ASSERT_GE(requests.size(), 1U);
    EXPECT_LE(requests.size(), test.requests);
    EXPECT_EQ(requests[0].path, "/d/enable.cdn");
    EXPECT_NE(requests[0].head.find("User-Agent: VelmoraUpdate_CDN\r\n"), std::string::npos);
  }
  EXPECT_EQ(ReadFile("session.log"), "(none)");
}

class CommandLine : public EngineTest {};

TEST_F(CommandLine, OptionsAndTail) {
  const std::pair<std::string, std::string*> settings[] = {
      {"settings", &Settings.SettingsPath}, {"host", &Settings.ServerHost},
      {"path", &Settings.DataPath},         {"list", &Settings.DataFile},
      {"page", &Settings.InformationUrl},   {"id", &Settings.LaunchId},
  };
  const std::string longest(kMaxOptionValue, 'v');
  const struct {
    std::string line;
    std::string changes;
    std::string tail = line;
  } cases[] = {
      {"/P a.dat", "settings=a.dat "},
      {"/pa.dat", "settings=a.dat "},
      {"/P    a /I x", "settings=a id=x "},
      {"/P   ", "settings= "},
      {"/P \"a b\"", "settings=\"a "},
      {"/P " + longest, "settings=" + longest + " "},
      {"/P " + longest + "v", ""},
      {"//P a", ""},
      {"/d", "list= "},
      {"/H http://a/b /Iid7", "page=http://a/b id=id7 "},
      // To the scan for /P, a slash counts inside another option's value too.
      {"/B http://a:8080/pb?q /I 1", "settings=b?q host=a path=/pb id=1 "},
      // The other scan knows nothing of /P, so it finds an option in the settings path.
      {"/P some/dir", "settings=some/dir list=ir "},
      {"/B nonsense", ""},
      {"/L /D x", ""},  // the value of /L is "/D"
      {"/Z text /D x", "list=x "},
      {"/D x /", "list=x "},
      {"/C /D x", ""},
      {"/R /D x", "list=x ", "/D x"},
      {"/R /R  /I y", "id=y ", " /I y"},
      {"/R ", "", ""},
      {"/RX/I y", "id=y ", "/I y"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.line);
    Settings.ServerPort = 99;
    for (const auto& [name, setting] : settings) *setting = "before";
    ScanSettingsPath(test.line);
    EXPECT_EQ(ScanOptions(test.line) == ScanResult::kEndProcess, test.line.starts_with("/C"));
    std::string changes;
    for (const auto& [name, setting] : settings) {
      if (*setting != "before") changes += name + "=" + *setting + " ";
    }
    EXPECT_EQ(changes, test.changes);
    EXPECT_EQ(Settings.ServerPort, 99);
    EXPECT_EQ(ArgumentTail, test.tail);
  }
  EXPECT_EQ(LogMessagesWith("ID = y").size(), 2U);
  EXPECT_EQ(LogMessagesWith("value is too long").size(), 1U);
}

TEST_F(CommandLine, WholeOptionsWithinALimit) {
  const struct {
    const char* line;
    std::size_t limit;
    const char* whole;
  } cases[] = {
      {"/D /x /I abc", 12, "/D /x /I abc"},
      {"/D /x /I abc", 11, "/D /x"},
      {"/h http://a/b /Iid", 12, ""},
      // A settings path that the other scan reads as an option, and the other way round.
      {"/P a/D b /Ix", 7, ""},
      {"/P a/D b /Ix", 8, "/P a/D b"},
      {"/H a/p b /Ix", 7, ""},
      {"/H a/p b /Ix", 8, "/H a/p b"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(WholeOptions(test.line, test.limit), test.whole) << test.line << ", " << test.limit;
  }
}

// A copy that can't be deleted yet is waited for. One that vanishes in the meantime ends the wait.
TEST_F(CommandLine, TemporaryCopyIsDeleted) {
  for (const bool vanishes : {false, true}) {
    WriteFile(kTemporaryCopy, "x");
    fs::permissions(kTemporaryCopy, fs::perms::owner_read);
    std::thread other([vanishes] {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      fs::permissions(kTemporaryCopy, fs::perms::owner_all);
      if (vanishes) fs::remove(kTemporaryCopy);
    });
    static_cast<void>(ScanOptions(vanishes ? "/C" : "/R"));
    other.join();
    EXPECT_FALSE(fs::exists(kTemporaryCopy));
  }
  EXPECT_EQ(LogMessages(), (Lines{"Delete temporary files to reboot.", "Deleted temporary files.",
                                  "Delete temporary files to close.", "Deleted temporary files."}));
}

class SessionLog : public EngineTest {};

TEST_F(SessionLog, RecordsAndTheirForm) {
  LogMessage("%s at 100%%\n", "50% of");
  EXPECT_TRUE(
      std::regex_match(ReadFile("session.log"),
                       std::regex(R"(\[\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\] 50% of at 100%\r\n)")));
  InitSessionLog();
  EXPECT_EQ(LogMessages(), Lines{"==== LogFile Initialized. ===="});

  fs::remove("session.log");
  fs::create_directories("session.log/x");
  InitSessionLog();  // fails, and so does the next, without a crash
  LogMessage("lost\n");
}

TEST_F(SessionLog, LongMessagesAreCutBetweenCharacters) {
  const std::string longest(kMaxLogMessage - 1, 'x');  // and the line end
  std::string wide = "z";
  while (wide.size() < 5000) wide += "\x95\x5C";
  for (const auto& text : {longest, longest + "x", wide}) LogMessage("%s\n", text.c_str());
  EXPECT_EQ(LogMessages(), (Lines{longest, longest, wide.substr(0, kMaxLogMessage - 2)}));
}

}  // namespace
}  // namespace velmora::test
