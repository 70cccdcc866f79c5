// The whole chain of a start as real processes: installed patcher, temporary copy, clean-up or
// restart.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
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

std::string WaitForFile(const std::string& path) {
  for (int i = 0; i < 500 && !fs::exists(path); ++i) usleep(10000);
  return ReadFile(path);
}

Lines LogEnd(std::ptrdiff_t count) {
  const Lines log = LogMessages();
  return {log.end() - std::min(count, std::ssize(log)), log.end()};
}

class Chain : public EngineTest {
 protected:
  Chain() { InstallProgram(VELMORA_PROGRAM, kPatcher); }

  void Serve(LoopbackServer::Answer answer) {
    EngineTest::Serve(std::move(answer));
    WriteFile("VelmoraUpdate.dat",
              "[Setting]\r\nServerAddress=127.0.0.1:" + std::to_string(server_->port()) + "\r\n");
  }
  void Serve(Files files) { Serve(LoopbackServer::Serving(std::move(files))); }
  // Runs a script to its end.
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
};

TEST_F(Chain, NothingToUpdate) {
  Serve({{"/hashlist.dat", ""}});
  WriteFile(kCopy, "left over");
  const PatcherProcess patcher = Play(kPatcher, {"/I", "id", "/H", "http://info/"});
  EXPECT_NE(patcher.output().find("page: http://info/\n"), std::string::npos);
  EXPECT_EQ(patcher.errors(), "");
  ExpectCompleteChain();
  EXPECT_EQ(LogMessages()[1], "Executing : _VelmoraUpdate.exe");
  EXPECT_EQ(LogMessagesWith("ID = id").size(), 1U);  // the copy; the clean-up ends at its /C
  EXPECT_EQ(LogEnd(4), (Lines{"Destroying Window : ", "Execute : Cleaning temporary files.",
                              "Delete temporary files to close.", "Deleted temporary files."}));
}

TEST_F(Chain, LaterStartsMeetTheMessageAndTheFirstStays) {
  Serve({{"/hashlist.dat", ""}});
  PatcherProcess first(kPatcher, {});
  ASSERT_TRUE(first.HasShown("Start Game button: enabled"));
  const PatcherProcess second = Play(kPatcher);
  EXPECT_TRUE(second.errors().starts_with(kRunningMessage)) << second.errors();
  EXPECT_EQ(LogEnd(2), (Lines{"Error CopyFile() : Already exists same application ",
                              "Reason of the system : 26 Text file busy"}));

  // A copy started by itself meets the mutex, and its clean-up waits for the first one's end.
  InstallProgram(VELMORA_PROGRAM, "_other.exe");
  PatcherProcess other("_other.exe", {});
  for (int i = 0; i < 500 && LogMessagesWith("Delete temporary").empty(); ++i) other.Pump(10);
  EXPECT_TRUE(other.errors().starts_with(kRunningMessage)) << other.errors();
  EXPECT_EQ(LogMessagesWith("Detect CreateMutex() : Already exists same application ").size(), 1U);
  EXPECT_TRUE(fs::exists(kCopy));

  first.Send("close");
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(other.Wait(), 0);
  EXPECT_FALSE(fs::exists(kCopy));
  EXPECT_EQ(LogMessagesWith("Update Completed").size(), 1U);
}

TEST_F(Chain, RoleGoesByTheFileName) {
  Serve({{"/hashlist.dat", FileLine("a.dat", "a")}, {"/a.dat", "a"}});
  // Without an underscore: an installed patcher, here read-only and without an input. The last
  // process of the chain has the fixed name.
  InstallProgram(VELMORA_PROGRAM, "Other.exe");
  fs::permissions("Other.exe", fs::perms::owner_read | fs::perms::owner_exec);
  Play("/bin/sh", {"-c", "exec ./Other.exe <&-"});
  EXPECT_EQ(ReadFile("a.dat"), "a");
  ExpectCompleteChain();
  // With one: a temporary copy, which keeps the log.
  InstallProgram(VELMORA_PROGRAM, "_Other.exe");
  Play("_Other.exe");
  EXPECT_EQ(LogMessagesWith("Delete temporary files to close.").size(), 2U);
  EXPECT_TRUE(fs::exists("_Other.exe"));

  // The working directory counts, not the program's. Nothing there can delete the copy.
  fs::create_directory("away");
  fs::rename(kPatcher, "away/VelmoraUpdate.exe");
  fs::remove("a.dat");
  Play("away/VelmoraUpdate.exe");
  EXPECT_EQ(ReadFile("a.dat"), "a");
  EXPECT_TRUE(fs::exists(kCopy));
  EXPECT_FALSE(fs::exists("away/_VelmoraUpdate.exe"));
}

TEST_F(Chain, NewPatcherRunsWithThePlayersOptions) {
  const std::string next = ReadFile(VELMORA_MARKED_PROGRAM);
  Serve({{"/list2.dat", FileLine(kPatcher, next) + FileLine("bb.dat", "b")},
         {"/VelmoraUpdate.exe", next},
         {"/bb.dat", "b"}});
  const std::string tooLong(200, 'v');  // to be handed on
  const PatcherProcess patcher = Play(kPatcher, {"/D", "list2.dat", "/I", "id7", "/L", tooLong});
  EXPECT_NE(patcher.errors().find("VelmoraUpdate: アップデートプログラムが更新されました。"),
            std::string::npos);
  EXPECT_EQ(ReadFile(kPatcher), next);
  EXPECT_EQ(ReadFile("bb.dat"), "b");
  EXPECT_EQ(ReadFile("edition.txt"),
            "next edition: /R /D list2.dat /I id7\n"
            "next edition: /D list2.dat /I id7\n"
            "next edition: /C /D list2.dat /I id7\n");
  ExpectCompleteChain();
  // The log of the run that replaced the patcher is gone, but its cache isn't.
  EXPECT_TRUE(LogMessagesWith("update program has been updated").empty());
  EXPECT_TRUE(LogMessagesWith("Correct Hash : " + Sha1(next)).empty());
}

// Ctrl-C asks a run to stop, and closes the dialog when there is none.
TEST_F(Chain, FileAndFolderTakeEachOthersPlaces) {
  WriteFile("folder", "a file yet");
  WriteFile("d/file/own", "the player's");
  Serve({{"/hashlist.dat", "DEL : folder, R\nDEL : d\\file\\\n" + FileLine("folder\\x", "new") +
                               FileLine("d\\file", "new")},
         {"/folder/x", "new"},
         {"/d/file", "new"}});
  for (int start = 1; start <= 2; ++start) {
    Play(kPatcher);
    ExpectCompleteChain();
    EXPECT_EQ(ReadFile("folder/x") + ReadFile("d/file"), "newnew");
  }
  EXPECT_EQ(RequestedPaths().back(), "/hashlist.dat");
}

TEST_F(Chain, EndDuringADownload) {
  Serve([](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") return Ok(FileLine("a.dat", "0123456789"));
    return Raw("Content-Length: 10\r\n", "0123", Reply::End::kStall);
  });
  for (const bool byCtrlC : {false, true}) {
    WriteFile("VelmoraUpdate.cvc", "kept H 1 H 1 0\r\n");
    PatcherProcess patcher(kPatcher, {});
    if (byCtrlC) patcher.Send("wait");
    ASSERT_TRUE(patcher.HasShown("file bar: 40 %"));
    const std::uint32_t start = platform::TickCount();
    if (byCtrlC) {
      patcher.Signal(SIGINT);
      EXPECT_TRUE(patcher.HasShown("Update button: disabled"));
      patcher.Signal(SIGINT);
    } else {
      patcher.Send("close");
    }
    EXPECT_EQ(patcher.Wait(), 0);
    EXPECT_LT(platform::TickCount() - start, 5000U);
    ExpectCompleteChain();
    EXPECT_EQ(ReadFile("VelmoraUpdate.cvc"), "kept H 1 H 1 0\r\n");
    EXPECT_FALSE(fs::exists("a.dat"));
  }
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
  // The descriptors are the three streams and the listing's own.
  EXPECT_EQ(WaitForFile("bin/started"), fs::canonical("bin").string() + "\n2:-id player1\n4\n");
  ExpectCompleteChain();
}

// Programs for Windows run through Wine, and the Screenshot folder opens as the desktop opens
// folders. Scripts take the place of both here.
TEST_F(Chain, WindowsProgramsAndFolders) {
  Serve({{"/hashlist.dat", "EXE : \\Game.exe\n"}});
  WriteFile("Game.exe", "MZ and so on");
  fs::create_directory("Screenshot");
  for (const char* tool : {"tools/wine", "tools/xdg-open"}) {
    WriteFile(tool, "#!/bin/sh\necho \"$PWD:$#:$*\" >\"$0.tmp\"; mv \"$0.tmp\" \"$0.told\"\n");
    fs::permissions(tool, fs::perms::owner_all);
  }
  const std::string here = fs::current_path().string();
  Play("/bin/sh", {"-c", "PATH=$PWD/tools:$PATH exec ./VelmoraUpdate.exe"},
       {"wait", "screenshots", "start"});
  EXPECT_EQ(WaitForFile("tools/wine.told"), here + ":2:" + here + "/Game.exe -id\n");
  EXPECT_EQ(WaitForFile("tools/xdg-open.told"), here + ":1:" + here + "/Screenshot\n");
}

}  // namespace
}  // namespace velmora::test
