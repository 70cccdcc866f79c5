// The whole chain of a start as real processes: installed run, temporary copy, clean-up or restart.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "support/loopback_server.h"
#include "support/patcher_process.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

constexpr char kPatcher[] = "VelmoraUpdate.exe";
constexpr char kCopy[] = "_VelmoraUpdate.exe";
constexpr char kRunningMessage[] = "エラー: 既に動作中です。";

void InstallProgram(const std::string& source, const std::string& name) {
  fs::copy_file(source, name, fs::copy_options::overwrite_existing);
}

class Chain : public testing::Test {
 protected:
  Chain() { InstallProgram(VELMORA_PROGRAM, kPatcher); }

  void Serve(std::map<std::string, std::string> files) {
    Serve(LoopbackServer::Serving(std::move(files)));
  }
  void Serve(LoopbackServer::Answer answer) {
    server_ = std::make_unique<LoopbackServer>(std::move(answer));
    WriteFile("VelmoraUpdate.dat", SettingsText(""));
  }
  std::string SettingsText(const std::string& more) const {
    return "[Setting]\r\nServerAddress=127.0.0.1:" + std::to_string(server_->port()) + "\r\n" +
           more;
  }
  // Carries out a script to its end.
  static PatcherProcess Play(const std::string& program, const Lines& options = {},
                             const Lines& script = {}) {
    PatcherProcess patcher(program, options);
    for (const std::string& command : script) patcher.Send(command);
    patcher.EndInput();
    EXPECT_EQ(patcher.Wait(), 0);
    return patcher;
  }
  static void ExpectCompleteChain() {
    EXPECT_FALSE(fs::exists(kCopy));
    const Lines log = LogMessages();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.front(), "==== LogFile Initialized. ====");
    EXPECT_EQ(log.back(), "Deleted temporary files.");
  }

  TemporaryFolder folder_;
  std::unique_ptr<LoopbackServer> server_;
};

TEST_F(Chain, NothingToUpdate) {
  Serve({{"/hashlist.dat", ""}});
  WriteFile(kCopy, "left behind");
  PatcherProcess patcher = Play(kPatcher, {"/I", "id", "/H", "http://info/"});
  EXPECT_NE(patcher.output().find("page: http://info/\n"), std::string::npos);
  ExpectCompleteChain();
  const Lines log = LogMessages();
  EXPECT_EQ(log[1], "Executing : _VelmoraUpdate.exe");
  EXPECT_EQ(LogMessagesWith("ID = id").size(), 1U);  // the copy; the clean-up ends at its /C
  const Lines end(log.end() - 4, log.end());
  EXPECT_EQ(end, (Lines{"Destroying Window : ", "Execute : Cleaning temporary files.",
                        "Delete temporary files to close.", "Deleted temporary files."}));
  EXPECT_EQ(patcher.errors(), "");
}

TEST_F(Chain, SecondStartMeetsTheMessageAndTheFirstStays) {
  Serve({{"/hashlist.dat", ""}});
  PatcherProcess first(kPatcher, {});
  ASSERT_TRUE(first.HasShown("Start Game button: enabled"));
  const std::size_t logged = LogMessages().size();

  PatcherProcess second = Play(kPatcher, {});
  EXPECT_TRUE(second.errors().starts_with(kRunningMessage)) << second.errors();
  EXPECT_TRUE(fs::exists(kCopy));
  EXPECT_GT(LogMessages().size(), logged);
  const Lines log = LogMessages();
  EXPECT_EQ(Lines(log.end() - 2, log.end()),
            (Lines{"Error CopyFile() : Already exists same application ",
                   "Reason of the system : 26 Text file busy"}));

  first.Send("close");
  EXPECT_EQ(first.Wait(), 0);
  ExpectCompleteChain();
}

// A copy that runs by itself meets the mutex of the other one, and its clean-up waits for both.
TEST_F(Chain, SecondCopyMeetsTheMutex) {
  Serve({{"/hashlist.dat", ""}});
  PatcherProcess first(kPatcher, {});
  ASSERT_TRUE(first.HasShown("Start Game button: enabled"));
  InstallProgram(VELMORA_PROGRAM, "_other.exe");
  PatcherProcess second("_other.exe", {});
  for (int i = 0; i < 500 && LogMessagesWith("Delete temporary files to close.").empty(); ++i) {
    second.Pump(10);
  }
  EXPECT_TRUE(second.errors().starts_with(kRunningMessage)) << second.errors();
  EXPECT_EQ(LogMessagesWith("Detect CreateMutex() : Already exists same application ").size(), 1U);
  EXPECT_TRUE(fs::exists(kCopy));

  first.Send("close");
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(second.Wait(), 0);
  EXPECT_FALSE(fs::exists(kCopy));
  EXPECT_FALSE(LogMessagesWith("Deleted temporary files.").empty());
}

TEST_F(Chain, RoleGoesByTheFileName) {
  Serve({{"/hashlist.dat", ""}});
  // Without an underscore: an installed patcher, whose last launch is of the fixed name.
  InstallProgram(VELMORA_PROGRAM, "Other.exe");
  {
    Play("Other.exe");
    ExpectCompleteChain();
  }
  // With one: a temporary copy at once, and no new log.
  InstallProgram(VELMORA_PROGRAM, "_Other.exe");
  const std::size_t logged = LogMessages().size();
  Play("_Other.exe");
  EXPECT_GT(LogMessages().size(), logged);
  EXPECT_EQ(LogMessages().back(), "Delete temporary files to close.");
  EXPECT_TRUE(fs::exists("_Other.exe"));

  // The fixed name isn't there: nobody notices, and the copy stays behind.
  fs::remove(kPatcher);
  Play("Other.exe");
  EXPECT_TRUE(fs::exists(kCopy));
}

TEST_F(Chain, WorkingDirectoryCounts) {
  Serve({{"/hashlist.dat", FileLine("a.dat", "a")}, {"/a.dat", "a"}});
  fs::create_directory("away");
  fs::rename(kPatcher, "away/VelmoraUpdate.exe");
  Play("away/VelmoraUpdate.exe");
  EXPECT_EQ(ReadFile("a.dat"), "a");
  EXPECT_TRUE(fs::exists(kCopy));
  EXPECT_FALSE(fs::exists("away/_VelmoraUpdate.exe"));
}

TEST_F(Chain, NewPatcherRunsWithThePlayersOptions) {
  const std::string next = ReadFile(VELMORA_MARKED_PROGRAM);
  Serve({{"/list2.dat", FileLine("aa.dat", "a") + FileLine(kPatcher, next) +
                            FileLine("behind-the-patcher.dat", "b")},
         {"/VelmoraUpdate.exe", next},
         {"/aa.dat", "a"},
         {"/behind-the-patcher.dat", "b"}});
  PatcherProcess patcher = Play(kPatcher, {"/D", "list2.dat", "/I", "id7"});
  EXPECT_NE(patcher.errors().find("VelmoraUpdate: アップデートプログラムが更新されました。"),
            std::string::npos);
  EXPECT_EQ(ReadFile(kPatcher), next);
  EXPECT_EQ(ReadFile("behind-the-patcher.dat"), "b");
  EXPECT_EQ(ReadFile("edition.txt"),
            "next edition: /R /D list2.dat /I id7\n"
            "next edition: /D list2.dat /I id7\n"
            "next edition: /C /D list2.dat /I id7\n");
  ExpectCompleteChain();
  // The log of the run that replaced the patcher is gone, and its cache is not.
  EXPECT_TRUE(LogMessagesWith("update program has been updated").empty());
  EXPECT_TRUE(LogMessagesWith("Correct Hash : " + Sha1(next)).empty());
}

TEST_F(Chain, NewSettingsFileIsReadByTheNextProcess) {
  // The new settings name the server as the request did.
  const auto settings = [](const ServedRequest& request) {
    const std::size_t host = request.head.find("Host: ") + 6;
    return "[Setting]\r\nDataFile=other.dat\r\nServerAddress=" +
           request.head.substr(host, request.head.find('\r', host) - host) + "\r\n";
  };
  Serve([settings](const ServedRequest& request) {
    if (request.path == "/other.dat") return Ok("");
    const std::string content = settings(request);
    return Ok(request.path == "/hashlist.dat" ? FileLine("./VelmoraUpdate.dat", content) : content);
  });
  Play(kPatcher);
  EXPECT_TRUE(ReadFile("VelmoraUpdate.dat").starts_with("[Setting]\r\nDataFile=other.dat\r\n"));
  EXPECT_EQ(LogMessagesWith("requested information file"),
            Lines{"requested information file : /other.dat"});
  ExpectCompleteChain();
}

TEST_F(Chain, CleanUpAndRestartWaitForTheCopyToEnd) {
  Serve({{"/hashlist.dat", ""}});
  for (const std::string option : {"/C", "/R"}) {
    InstallProgram("/bin/sleep", kCopy);
    PatcherProcess copy(kCopy, {"2"});
    usleep(100000);
    const std::uint32_t start = platform::TickCount();
    Play(kPatcher, {option});
    EXPECT_GE(platform::TickCount() - start, 1500U) << option;
    EXPECT_EQ(copy.Wait(), 0);
    EXPECT_FALSE(fs::exists(kCopy));
    EXPECT_EQ(LogMessages().back(), "Deleted temporary files.");
  }
}

TEST_F(Chain, CloseDuringADownload) {
  Serve([](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") return Ok(FileLine("a.dat", "0123456789"));
    return Raw("Content-Length: 10\r\n", "0123", Reply::End::kStall);
  });
  WriteFile("VelmoraUpdate.cvc", "kept H 1 H 1 0\r\n");
  PatcherProcess patcher(kPatcher, {});
  ASSERT_TRUE(patcher.HasShown("file bar: 40 %"));
  const std::uint32_t start = platform::TickCount();
  patcher.Send("close");
  EXPECT_EQ(patcher.Wait(), 0);
  EXPECT_LT(platform::TickCount() - start, 5000U);
  ExpectCompleteChain();
  EXPECT_EQ(ReadFile("VelmoraUpdate.cvc"), "kept H 1 H 1 0\r\n");
  EXPECT_FALSE(fs::exists("a.dat"));
}

// Ctrl-C asks a run to stop, and closes the dialog when there is none.
TEST_F(Chain, InterruptCancelsAndThenCloses) {
  Serve([](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") {
      return Ok(FileLine("a.dat", "0123456789") + FileLine("bb.dat", "x"));
    }
    return Raw("Content-Length: 10\r\n", "0123", Reply::End::kStall);
  });
  PatcherProcess patcher(kPatcher, {});
  patcher.Send("wait");
  ASSERT_TRUE(patcher.HasShown("file bar: 40 %"));
  patcher.Signal(SIGINT);
  EXPECT_TRUE(patcher.HasShown("Update button: disabled"));
  patcher.Signal(SIGINT);
  EXPECT_EQ(patcher.Wait(), 0);
  ExpectCompleteChain();
}

TEST_F(Chain, GameGetsItsDirectoryItsIdAndNothingElse) {
  // A game that comes with the update can be started at once.
  const std::string game =
      "#!/bin/sh\n"
      "{ pwd; echo \"$#:$*\"; ls /proc/self/fd | wc -l; } > started.tmp\n"
      "mv started.tmp started\n";
  Serve({{"/hashlist.dat", FileLine("bin\\Game.exe", game) + "EXE : \\bin\\Game.exe\n"},
         {"/bin/Game.exe", game}});
  Play(kPatcher, {"/Iplayer1"}, {"wait", "start"});
  for (int i = 0; i < 500 && !fs::exists("bin/started"); ++i) usleep(10000);
  std::ifstream started("bin/started");
  std::string directory;
  std::string words;
  std::string descriptors;
  std::getline(started, directory);
  std::getline(started, words);
  std::getline(started, descriptors);
  EXPECT_EQ(directory, fs::canonical("bin").string());
  EXPECT_EQ(words, "2:-id player1");
  EXPECT_EQ(std::stoi(descriptors), 4);  // the three streams and the listing's own
  EXPECT_FALSE(LogMessagesWith("StartGame : Execute \\bin\\Game.exe ").empty());
  ExpectCompleteChain();
}

TEST_F(Chain, GameThatCannotBeStartedEndsThePatcherAllTheSame) {
  Serve({{"/hashlist.dat", FileLine("Game.exe", "no program") + "EXE : \\Game.exe\n"},
         {"/Game.exe", "no program"}});
  PatcherProcess patcher = Play(kPatcher, {}, {"start", "wait", "start"});
  EXPECT_EQ(LogMessagesWith("ShellExecuteEx").size(), 1U);
  EXPECT_EQ(LogMessagesWith("Launch failed"),
            Lines{"Launch failed : File = Game.exe : Exec format error"});
  EXPECT_EQ(patcher.errors(), "");
  ExpectCompleteChain();
}

// Programs for Windows run through Wine, and the Screenshot folder opens as the desktop opens
// folders; here scripts stand for both.
TEST_F(Chain, WindowsProgramsAndFolders) {
  Serve({{"/hashlist.dat", "EXE : \\Game.exe\n"}});
  WriteFile("Game.exe", "MZ and so on");
  fs::create_directory("Screenshot");
  const std::string told =
      "#!/bin/sh\necho \"$PWD:$#:$*\" >\"$0.tmp\"; mv \"$0.tmp\" \"$0.told\"\n";
  for (const char* tool : {"tools/wine", "tools/xdg-open"}) {
    WriteFile(tool, told);
    fs::permissions(tool, fs::perms::owner_all);
  }
  const std::string here = fs::current_path().string();
  Play("/bin/sh", {"-c", "PATH=$PWD/tools:$PATH exec ./VelmoraUpdate.exe"},
       {"wait", "screenshots", "start"});
  for (int i = 0; i < 500; ++i) {
    if (fs::exists("tools/wine.told") && fs::exists("tools/xdg-open.told")) break;
    usleep(10000);
  }
  EXPECT_EQ(ReadFile("tools/wine.told"), here + ":2:" + here + "/Game.exe -id\n");
  EXPECT_EQ(ReadFile("tools/xdg-open.told"), here + ":1:" + here + "/Screenshot\n");
}

TEST_F(Chain, ClosedInputAndReadOnlyProgram) {
  Serve({{"/hashlist.dat", FileLine("a", "1")}, {"/a", "1"}});
  fs::permissions(kPatcher, fs::perms::owner_read | fs::perms::owner_exec);
  Play("/bin/sh", {"-c", "exec ./VelmoraUpdate.exe <&-"});
  EXPECT_EQ(ReadFile("a"), "1");
  ExpectCompleteChain();
}

TEST_F(Chain, ExtremeCommandLineIsHandedToTheCopy) {
  Serve({{"/hashlist.dat", ""}});
  InstallProgram(VELMORA_MARKED_PROGRAM, kPatcher);
  std::vector<std::string> options;
  for (int i = 0; i < 1000; ++i) options.insert(options.end(), {"/L", std::string(200, 'v'), ""});
  Play(kPatcher, options);
  std::ifstream editions("edition.txt");
  std::string first;
  std::string second;
  std::getline(editions, first);
  std::getline(editions, second);
  EXPECT_EQ(first, second);
  EXPECT_GT(first.size(), 200000U);
  ExpectCompleteChain();
}

TEST_F(Chain, LongTailIsCutBetweenOptions) {
  Serve({{"/hashlist.dat", ""}});
  InstallProgram(VELMORA_MARKED_PROGRAM, kPatcher);
  const std::string longValue(100, 'v');
  Play(kPatcher, {"/I", "one", "/L", longValue, "/H", "http://info/page/of/it"});
  EXPECT_TRUE(ReadFile("edition.txt").ends_with("next edition: /C /I one /L " + longValue + "\n"))
      << ReadFile("edition.txt");
}

}  // namespace
}  // namespace velmora::test
