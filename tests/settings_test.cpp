#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <thread>
#include <vector>

#include "process/command_line.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"
#include "settings/probe_client.h"
#include "settings/session_log.h"
#include "settings/settings_store.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

class SettingsStore : public EngineTest {
 protected:
  static void Load(const std::string& content) {
    WriteFile("VelmoraUpdate.dat", "[Setting]\r\n" + content);
    Settings = PatcherSettings();
    LoadSettings();
  }
};

TEST_F(SettingsStore, ServerAddress) {
  const struct {
    const char* value;
    const char* host;
    std::int32_t port;
  } cases[] = {
      {"ServerAddress=", "", 0},
      {"ServerAddress=host.invalid", "host.invalid", 0},
      {"ServerAddress=host.invalid:8080", "host.invalid", 8080},
      {"ServerAddress=host.invalid:", "host.invalid", 0},
      {"ServerAddress=host.invalid:abc", "host.invalid", 0},
      {"ServerAddress=host.invalid: 80", "host.invalid", 0},
      {"ServerAddress=host.invalid:81:82", "host.invalid", 81},
      {"ServerAddress=host.invalid:+7x", "host.invalid", 7},
      {"ServerAddress=:9", "", 9},
  };
  for (const auto& test : cases) {
    Load(test.value);
    EXPECT_EQ(Settings.ServerHost, test.host) << test.value;
    EXPECT_EQ(Settings.ServerPort, test.port) << test.value;
  }
}

TEST_F(SettingsStore, KeysDefaultsAndReservedNames) {
  Load(
      "FTPUserName=KOL\r\nFTPPassword=secret\r\nGameServer=g\r\nData=/d\r\n"
      "Information=http://i/\r\nDataFile=list.txt\r\n");
  EXPECT_EQ(Settings.FTPUserName, "");
  EXPECT_EQ(Settings.FTPPassword, "secret");
  EXPECT_EQ(Settings.GameServer, "g");
  EXPECT_EQ(Settings.DataPath, "/d");
  EXPECT_EQ(Settings.InformationUrl, "http://i/");
  EXPECT_EQ(Settings.DataFile, "list.txt");
  EXPECT_EQ(Settings.SettingsPath, "./VelmoraUpdate.dat");

  for (const char* name : {"KOL", "MIRE", "TUV", "SEB", "OSKA"}) {
    Load(std::string("FTPUserName=") + name);
    EXPECT_EQ(Settings.FTPUserName, "") << name;
  }
  for (const char* name : {"kol", "KOLA", "KO"}) {
    Load(std::string("FTPUserName=") + name);
    EXPECT_EQ(Settings.FTPUserName, name);
  }

  std::filesystem::remove("VelmoraUpdate.dat");
  Settings = PatcherSettings();
  EXPECT_TRUE(LoadSettings());
  EXPECT_EQ(Settings.ServerHost + Settings.DataPath, "");
  EXPECT_EQ(Settings.DataFile, "hashlist.dat");

  const std::string data(300, 'd');
  Load("Data=" + data);
  EXPECT_EQ(Settings.DataPath, data.substr(0, 255));
}

TEST_F(SettingsStore, MirrorTable) {
  const auto mirror = [](int n) {
    return "BaseURL" + std::to_string(n) + "=http://127.0.0." + std::to_string(n + 10) + ":81/m" +
           std::to_string(n) + "?q\r\n";
  };
  // One mirror replaces host, path and port; a URL without a port brings its scheme's.
  Load("ServerAddress=host.invalid:8080\r\nData=/d\r\nBaseURL1=http://127.0.0.9/m/\r\n");
  EXPECT_EQ(Settings.ServerHost, "127.0.0.9");
  EXPECT_EQ(Settings.ServerPort, 80);
  EXPECT_EQ(Settings.DataPath, "/m/");

  std::string eleven;
  for (int n = 1; n <= 11; ++n) eleven += mirror(n);
  Load(eleven);
  EXPECT_EQ(Mirrors.count, 10U);
  EXPECT_EQ(Mirrors.entries[9].path, "/m10");
  EXPECT_EQ(Mirrors.entries[9].port, 81);

  Load(mirror(1) + mirror(2));
  EXPECT_EQ(Mirrors.count, 2U);
  Load(mirror(1) + mirror(3));
  EXPECT_EQ(Mirrors.count, 1U);
  // What is no URL is passed over, and what stands behind it still counts.
  Load("BaseURL1=nonsense\r\n" + mirror(2));
  EXPECT_EQ(Mirrors.count, 1U);
  EXPECT_EQ(Settings.DataPath, "/m2");
}

TEST_F(SettingsStore, EveryMirrorGetsItsTurn) {
  WriteFile("VelmoraUpdate.dat",
            "[Setting]\nBaseURL1=http://127.0.0.11/a\nBaseURL2=http://127.0.0.12/b\n");
  Settings.SettingsPath = "./VelmoraUpdate.dat";
  std::map<std::string, int> chosen;
  for (int i = 0; i < 2000 && chosen.size() < 2; ++i) {
    SelectMirror();
    ++chosen[Settings.DataPath];
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  EXPECT_EQ(chosen.size(), 2U);
}

// The probe asks on port 80 of the settings' host, whatever else the settings say.
class Probe : public SettingsStore {
 protected:
  // False where this user may not serve on port 80.
  bool Redirect(const Reply& reply, const char* address) {
    redirector_ = std::make_unique<LoopbackServer>([reply](const ServedRequest&) { return reply; },
                                                   80, address);
    return redirector_->IsListening();
  }
  std::unique_ptr<LoopbackServer> redirector_;
};

TEST_F(Probe, FollowsEnableCdn) {
  const std::string url = "http://cdn.invalid/";
  const std::string none = "127.0.0.80:8080/d";
  const struct {
    Reply reply;
    std::string place;
    std::size_t requests = 1;  // at most
  } cases[] = {
      {Ok("http://cdn.invalid:8080/files?x"), "cdn.invalid:80/files"},
      {Raw("Content-Length: 300\r\n", url + "x"), "cdn.invalid:80/x"},  // less than was told
      {Status(404), none},
      {Ok(""), none},
      {Ok("error: not found"), none},
      {Ok("<html>"), none},
      {Raw("", url), none},
      {Raw("Content-Length: -3\r\n", url), none, 2},
      {Raw("Content-Length: abc\r\n", url), none, 2},
      {Ok(url + std::string(1000, 'x')), none},
      {Raw("Content-Length: 30\r\n", "", Reply::End::kReset), none},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.reply.bytes);
    if (!Redirect(test.reply, "127.0.0.80")) GTEST_SKIP() << "port 80 of 127.0.0.80 can't be had";
    Load("ServerAddress=127.0.0.80:8080\r\nData=/d\r\n");
    EXPECT_EQ(Settings.ServerHost + ":" + std::to_string(Settings.ServerPort) + Settings.DataPath,
              test.place);
    ASSERT_GE(redirector_->Requests().size(), 1U);
    EXPECT_LE(redirector_->Requests().size(), test.requests);
    EXPECT_EQ(redirector_->Requests()[0].path, "/d/enable.cdn");
    EXPECT_NE(redirector_->Requests()[0].head.find("User-Agent: VelmoraUpdate_CDN\r\n"),
              std::string::npos);
    redirector_.reset();
  }
  EXPECT_EQ(ReadFile("session.log"), "(none)");
}

TEST_F(Probe, ClientTellsStatusAndLength) {
  constexpr char kAddress[] = "127.0.0.81";
  if (!Redirect(Status(404, "", "four"), kAddress)) {
    GTEST_SKIP() << "port 80 of 127.0.0.81 can't be had";
  }
  ProbeClient client("agent");
  ASSERT_TRUE(client.Connect(kAddress));
  std::int32_t status = 7;
  std::int32_t length = 7;
  EXPECT_EQ(client.FetchBody("/x", &status, &length), nullptr);
  EXPECT_EQ(status, 404);
  EXPECT_EQ(length, 0);
  redirector_.reset();
  ASSERT_TRUE(Redirect(Ok("four"), kAddress));
  ASSERT_STREQ(client.FetchBody("/x", &status, &length), "four");
  EXPECT_EQ(status, 200);
  EXPECT_EQ(length, 4);
  EXPECT_FALSE(ProbeClient("agent").Connect(""));
}

class CommandLine : public EngineTest {};

TEST_F(CommandLine, SettingsPath) {
  const struct {
    const char* line;
    const char* path;
  } cases[] = {
      {"/P a.dat", "a.dat"},
      {"/pa.dat", "a.dat"},
      {"/P    a.dat /I x", "a.dat"},
      {"/P a /P b", "b"},
      {"/I x", "before"},
      {"/P", ""},
      {"/P   ", ""},
      {"x/Pb", "b"},
      {"/P \ta", "\ta"},
      {"/P \"a b\"", "\"a"},
      // A slash counts inside another option's value too.
      {"/B http://host/path", "ath"},
      {"/", "before"},
      {"//P a", "before"},
      {"", "before"},
  };
  for (const auto& test : cases) {
    Settings.SettingsPath = "before";
    ScanSettingsPath(test.line);
    EXPECT_EQ(Settings.SettingsPath, test.path) << test.line;
  }
  ScanSettingsPath("/P " + std::string(kMaxOptionValue, 'p'));
  EXPECT_EQ(Settings.SettingsPath.size(), kMaxOptionValue);
  ScanSettingsPath("/P " + std::string(kMaxOptionValue + 1, 'q'));
  EXPECT_EQ(Settings.SettingsPath[0], 'p');
  EXPECT_EQ(LogMessagesWith("value is too long").size(), 1U);
}

TEST_F(CommandLine, OptionsAndTail) {
  struct Values {
    const char* host = "h";
    const char* path = "/d";
    const char* list = "l";
    const char* page = "p";
    const char* id = "i";
  };
  const struct {
    const char* line;
    Values values;
    const char* tail;
  } cases[] = {
      {"/D x.dat", {.list = "x.dat"}, "/D x.dat"},
      {"/d", {.list = ""}, "/d"},
      {"/H http://a/b /Iid7", {.page = "http://a/b", .id = "id7"}, "/H http://a/b /Iid7"},
      {"/H", {.page = ""}, "/H"},
      {"/B http://host:8080/path?q /I 1",
       {.host = "host", .path = "/path", .id = "1"},
       "/B http://host:8080/path?q /I 1"},
      {"/B nonsense", {}, "/B nonsense"},
      {"/B C:\\x", {}, "/B C:\\x"},
      {"/L /D x", {}, "/L /D x"},  // the value of /L is "/D"
      {"/L v /D x", {.list = "x"}, "/L v /D x"},
      {"/R /D x", {.list = "x"}, "/D x"},
      {"/D x /R /I y", {.list = "x", .id = "y"}, "/I y"},
      {"/R /R  /I y", {.id = "y"}, " /I y"},
      {"/R", {}, ""},
      {"/R ", {}, ""},
      {"/RX/I y", {.id = "y"}, "/I y"},
      {"/C /D x", {}, "/C /D x"},
      {"/Z text /D x", {.list = "x"}, "/Z text /D x"},
      // The settings path's letter is passed over here, and its value is walked like any text.
      {"/P some/dir", {.list = "ir"}, "/P some/dir"},
      {"/\xC4 x", {}, "/\xC4 x"},
      {"/D x /", {.list = "x"}, "/D x /"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.line);
    Settings = PatcherSettings();
    Settings.ServerHost = "h";
    Settings.ServerPort = 99;
    Settings.DataPath = "/d";
    Settings.DataFile = "l";
    Settings.InformationUrl = "p";
    Settings.LaunchId = "i";
    const ScanResult result = ScanOptions(test.line);
    EXPECT_EQ(result == ScanResult::kEndProcess, std::string(test.line).starts_with("/C"));
    EXPECT_EQ(Settings.ServerHost, test.values.host);
    EXPECT_EQ(Settings.ServerPort, 99);
    EXPECT_EQ(Settings.DataPath, test.values.path);
    EXPECT_EQ(Settings.DataFile, test.values.list);
    EXPECT_EQ(Settings.InformationUrl, test.values.page);
    EXPECT_EQ(Settings.LaunchId, test.values.id);
    EXPECT_EQ(ArgumentTail, test.tail);
  }
  EXPECT_EQ(LogMessagesWith("ID = y").size(), 3U);
}

TEST_F(CommandLine, WholeOptionsWithinALimit) {
  const struct {
    const char* line;
    std::size_t limit;
    const char* whole;
  } cases[] = {
      {"/D /x /I abc", 12, "/D /x /I abc"},
      {"/D /x /I abc", 11, "/D /x"},
      {"/D /x /I abc", 4, ""},
      {"/D  a /Iid", 6, "/D  a"},
      {"/h http://a/b /Iid", 14, "/h http://a/b"},
      {"/h http://a/b /Iid", 12, ""},
      {"/R/Dx y /Z", 9, "/R/Dx"},
      {"/Z text /D x", 11, "/Z"},
      // A settings path that the other scan reads as an option, and the other way round.
      {"/P a/D b /Ix", 7, ""},
      {"/P a/D b /Ix", 8, "/P a/D b"},
      {"/H a/p b /Ix", 7, ""},
      {"/H a/p b /Ix", 8, "/H a/p b"},
      {"no options at all", 9, ""},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(WholeOptions(test.line, test.limit), test.whole) << test.line << ", " << test.limit;
  }
}

TEST_F(CommandLine, TemporaryCopyIsDeleted) {
  const auto logged = [](const char* line, ScanResult result) {
    std::filesystem::remove("session.log");
    EXPECT_EQ(ScanOptions(line), result);
    EXPECT_EQ(ReadFile(kTemporaryCopy), "(none)");
    return LogMessages();
  };
  using Lines = std::vector<std::string>;
  const std::string close = "Delete temporary files to close.";
  EXPECT_EQ(logged("/C", ScanResult::kEndProcess), Lines{close});
  WriteFile(kTemporaryCopy, "x");
  EXPECT_EQ(logged("/C", ScanResult::kEndProcess), (Lines{close, "Deleted temporary files."}));
  WriteFile(kTemporaryCopy, "x");
  EXPECT_EQ(logged("/R", ScanResult::kContinue),
            (Lines{"Delete temporary files to reboot.", "Deleted temporary files."}));
}

// A copy that can't be deleted yet is waited for; one that vanishes meanwhile ends the wait.
TEST_F(CommandLine, TemporaryCopyIsWaitedFor) {
  namespace fs = std::filesystem;
  for (const bool vanishes : {false, true}) {
    WriteFile(kTemporaryCopy, "x");
    fs::permissions(kTemporaryCopy, fs::perms::owner_read);
    std::thread other([vanishes] {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      fs::permissions(kTemporaryCopy, fs::perms::owner_all);
      if (vanishes) fs::remove(kTemporaryCopy);
    });
    DeleteTemporaryCopy();
    other.join();
    EXPECT_FALSE(fs::exists(kTemporaryCopy));
  }
  EXPECT_EQ(LogMessages().size(), 2U);
}

class SessionLog : public EngineTest {};

TEST_F(SessionLog, RecordsAndTheirForm) {
  LogMessage("%s at 100%%\n", "50% of");
  LogMessage("two\n");
  const std::string log = ReadFile("session.log");
  ASSERT_GT(log.size(), 22U);
  // [YYYY/MM/DD hh:mm:ss] and a blank
  for (std::size_t i = 0; i < 22; ++i) {
    const char form = std::string("[0000/00/00 00:00:00] ")[i];
    EXPECT_TRUE(form == '0' ? std::isdigit(static_cast<unsigned char>(log[i])) != 0
                            : log[i] == form);
  }
  EXPECT_EQ(log.substr(22, log.find('\n') - 21), "50% of at 100%\r\n");
  EXPECT_EQ(LogMessages().size(), 2U);
  InitSessionLog();
  EXPECT_EQ(LogMessages(), std::vector<std::string>{"==== LogFile Initialized. ===="});
}

TEST_F(SessionLog, LongMessagesAreCutBetweenCharacters) {
  LogMessage("%s\n", std::string(kMaxLogMessage - 1, 'x').c_str());
  LogMessage("%s\n", std::string(kMaxLogMessage, 'y').c_str());
  std::string wide = "z";
  while (wide.size() < 5000) wide += "\x95\x5C";
  LogMessage("%s\n", wide.c_str());
  const auto messages = LogMessages();
  ASSERT_EQ(messages.size(), 3U);
  EXPECT_EQ(messages[0].size(), kMaxLogMessage - 1);
  EXPECT_EQ(messages[1].size(), kMaxLogMessage - 1);
  EXPECT_EQ(messages[2].size(), kMaxLogMessage - 2);
  EXPECT_EQ(messages[2].back(), '\x5C');
}

TEST_F(SessionLog, CannotBeOpened) {
  std::filesystem::create_directories("session.log/x");
  InitSessionLog();
  LogMessage("lost\n");
  EXPECT_TRUE(std::filesystem::is_directory("session.log"));
}

TEST_F(SessionLog, ThreadsDoNotMixTheirRecords) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i) LogMessage("thread %d record %03d\n", t, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<std::string> messages = LogMessages();
  EXPECT_EQ(messages.size(), 800U);
  std::sort(messages.begin(), messages.end());
  EXPECT_EQ(std::unique(messages.begin(), messages.end()), messages.end());
  EXPECT_EQ(messages.front(), "thread 0 record 000");
}

}  // namespace
}  // namespace velmora::test
