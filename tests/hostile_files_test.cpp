// Disks and files that are against the patcher, met by whole runs: what can't be done is told, what
// stood there stays, and the next run brings all into line once the way is free.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>
#include <system_error>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <windows.h>

#include <thread>
#else
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#endif

#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "platform/files.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;

class HostileFiles : public EngineTest {
 protected:
  // Publishes files by their listed paths, in front of other lines.
  void Publish(const Files& files, const std::string& lines = "") {
    Files served = {{"/hashlist.dat", lines}};
    for (const auto& [path, content] : files) {
      served["/hashlist.dat"] += FileLine(path, content);
      std::string request = "/" + path;
      for (char& character : request) {
        if (character == '\\') character = '/';
      }
      served[request] = content;
    }
    Serve(served);
  }
  // A run that ends at a record which it can't install.
  void RunIsStoppedBy(const std::string& path) {
    ResetDialog();
    ASSERT_TRUE(Run());
    EXPECT_EQ(UpdateState, kNotRunning);
    ASSERT_EQ(EventsOf("box").size(), 1U);
    EXPECT_NE(EventsOf("box")[0].find(path), std::string::npos) << EventsOf("box")[0];
    EXPECT_EQ(ReadFile("_VelmoraUpdate.new"), "(none)");
  }
  void RunBringsIntoLine(const Files& expected) {
    ResetDialog();
    ASSERT_TRUE(Run());
    EXPECT_EQ(UpdateState, kEnded);
    EXPECT_TRUE(EventsOf("box").empty());
    EXPECT_EQ(FilesHere(), expected);
  }
};

TEST_F(HostileFiles, RemovalsStayInTheInstallation) {
  TemporaryFolder elsewhere;
  WriteFile("kept.tmp", "the player's");
  WriteFile("below/kept.tmp", "the player's");
  fs::current_path(folder_.path());
  std::error_code error;
  fs::create_directories("data/sub");
  for (const char* link : {"linked", "data/sub/linked", "top"}) {
    fs::create_directory_symlink(elsewhere.path(), link, error);
    if (error) GTEST_SKIP() << "no links can be made here: " << error.message();
  }
  fs::create_symlink(elsewhere.path() / "kept.tmp", "data/single.tmp");
  fs::create_symlink("/not mounted", "top 2");
  fs::create_directory_symlink(folder_.path(), "data/sub/circle");
  Publish({}, "DEL : *.tmp, R\r\nDEL : top*, R\r\nDEL : linked\\\r\nDEL : data\r\n");
  ASSERT_TRUE(Run());
  EXPECT_EQ(UpdateState, kEnded);
  EXPECT_FALSE(fs::exists("data"));
  EXPECT_FALSE(fs::is_symlink("linked"));
  EXPECT_TRUE(fs::is_symlink("top") && fs::is_symlink("top 2"));
  EXPECT_EQ(LogMessagesWith("is a link to a folder").size(), 6U);
  EXPECT_EQ(LogMessagesWith("[RemoveDir] top is a link").size(), 2U);
  for (const char* kept : {"kept.tmp", "below/kept.tmp"}) {
    EXPECT_EQ(ReadFile(elsewhere.path() / kept), "the player's");
  }
}

TEST_F(HostileFiles, FileWhereADirectoryMustBeAndTheReverse) {
  const Files game = {{"a", "new"}, {"data\\sub\\b", "new"}};
  const Files inLine = {{"a", "new"}, {"data/sub/b", "new"}};
  WriteFile("data/sub", "a file in the way");
  fs::create_directories("a/inside");
  WriteFile("a/inside/own", "the player's");
  Publish(game);
  RunIsStoppedBy("a");
  EXPECT_EQ(ReadFile("a/inside/own"), "the player's");
  fs::remove_all("a");
  RunIsStoppedBy("data\\sub\\b");
  EXPECT_EQ(FilesHere(), (Files{{"a", "new"}, {"data/sub", "a file in the way"}}));

  // Removals come first, so that the publisher can clear the way.
  Publish(game, "DEL : data\\sub\r\n");
  RunBringsIntoLine(inLine);
  // But each start finds it to remove again.
  RunBringsIntoLine(inLine);
}

TEST_F(HostileFiles, ReadOnlyFileIsNotRemoved) {
  WriteFile("d/protected", "the player's choice");
  fs::permissions("d/protected", fs::perms::owner_read);
  Publish({{"d\\new", "new"}}, "DEL : d\\protected\r\n");
  RunBringsIntoLine({{"d/protected", "the player's choice"}, {"d/new", "new"}});
  fs::permissions("d/protected", fs::perms::owner_all);
  RunBringsIntoLine({{"d/new", "new"}});
}

#ifdef _WIN32

TEST_F(HostileFiles, HeldFileIsToldAndWaitedFor) {
  WriteFile("shared", "old and longer");
  WriteFile("held", "old");
  const int held = _sopen("held", _O_RDONLY, _SH_DENYRW, 0);
  std::ifstream shared("shared", std::ios::binary);  // which doesn't let it be replaced
  Publish({{"held", "new"}, {"shared", "new"}});
  RunIsStoppedBy("held");
  _close(held);
  EXPECT_EQ(ReadFile("held"), "old");
  RunBringsIntoLine({{"held", "new"}, {"shared", "new"}});
}

TEST_F(HostileFiles, HiddenFileIsNotWritten) {
  for (const DWORD attribute : {FILE_ATTRIBUTE_HIDDEN, FILE_ATTRIBUTE_SYSTEM}) {
    fs::remove(kCacheFile);
    WriteFile("d/hidden", "the player's choice");
    ASSERT_TRUE(SetFileAttributesA("d\\hidden", attribute));
    Publish({{"d\\hidden", "new"}});
    RunIsStoppedBy("d\\hidden");
    EXPECT_EQ(FilesHere(), (Files{{"d/hidden", "the player's choice"}}));
    ASSERT_TRUE(SetFileAttributesA("d\\hidden", FILE_ATTRIBUTE_NORMAL));
    RunBringsIntoLine({{"d/hidden", "new"}});
  }
}

// Another program opens a file for a moment, and shares it with nobody.
TEST_F(HostileFiles, ScannerIsWaitedFor) {
  WriteFile("d/file", "old");
  std::thread scanner;
  Serve([&scanner](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") return Ok(FileLine("d\\file", "new"));
    const int held = _sopen("d/file", _O_RDONLY, _SH_DENYRW, 0);
    EXPECT_GE(held, 0);
    scanner = std::thread([held] {
      Sleep(300);
      _close(held);
    });
    return Ok("new");
  });
  RunBringsIntoLine({{"d/file", "new"}});
  scanner.join();
}

// One file for the system, two for the list: the patcher takes the file as each line finds it.
TEST_F(HostileFiles, NamesThatDifferOnlyInCase) {
  WriteFile("data/name.dat", "old");
  Publish({{"DATA\\Name.DAT", "one edition"}});
  RunBringsIntoLine({{"data/name.dat", "one edition"}});
  Publish({{"DATA\\Name.DAT", "one edition"}, {"data\\name.dat", "another"}});
  RunBringsIntoLine({{"data/name.dat", "another"}});
}

#else

// Windows refuses it likewise; Wine doesn't where the superuser runs it.
TEST_F(HostileFiles, ReadOnlyFileIsNotWritten) {
  WriteFile("d/protected", "the player's choice");
  fs::permissions("d/protected", fs::perms::owner_read);
  Publish({{"d\\protected", "new"}});
  RunIsStoppedBy("d\\protected");
  EXPECT_EQ(FilesHere(), (Files{{"d/protected", "the player's choice"}}));
  fs::permissions("d/protected", fs::perms::owner_all);
  RunBringsIntoLine({{"d/protected", "new"}});
}

// A file gets what its folder gives to new ones, and keeps what the old one had of its own.
TEST_F(HostileFiles, NewFilesBelongToTheirFolderAndOldOnesKeepWhatTheyHad) {
  constexpr gid_t kGroup = 12345;
  fs::create_directory("shared");
  WriteFile("old", "old");
  ASSERT_EQ(setxattr("old", "user.note", "kept", 4, 0), 0);
  ASSERT_EQ(chmod("old", 0640), 0);
  const bool hasGroups = chown("shared", getuid(), kGroup) == 0 && chmod("shared", 02775) == 0;
  Publish({{"old", "new"}, {"shared\\file", "new"}});
  RunBringsIntoLine({{"old", "new"}, {"shared/file", "new"}});
  char note[4];
  EXPECT_EQ(getxattr("old", "user.note", note, sizeof note), 4);
  struct stat status {};
  ASSERT_EQ(stat("old", &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  ASSERT_EQ(stat("shared/file", &status), 0);
  EXPECT_TRUE(!hasGroups || status.st_gid == kGroup) << status.st_gid;
}

// As long as it isn't known that a file can be written, the cache stays; and after it was written
// in place, the cache is there again before the next file comes.
TEST_F(HostileFiles, WritingInPlaceLeavesTheCacheWhole) {
  const auto entry = [](const std::string& path, const std::string& content) {
    const std::string fields = Sha1(content) + " " + std::to_string(content.size());
    return path + " " + fields + " " + fields + " 0\r\n";
  };
  const std::string cache = entry("linked", "old") + entry("protected", "old");
  WriteFile("linked", "old");
  fs::create_hard_link("linked", "other name");
  WriteFile("protected", "old");
  fs::permissions("protected", fs::perms::owner_read);
  WriteFile(kCacheFile, cache);
  Publish({{"linked", "new"}, {"protected", "new"}});
  std::vector<std::string> seen;
  Dialog().onEvent = [&seen](const std::string& event) {
    const bool asks = event.starts_with("box") || event.ends_with("protected");
    if (asks) seen.push_back(ReadFile(kCacheFile));
  };
  ASSERT_TRUE(Run());
  EXPECT_EQ(seen, (std::vector<std::string>{cache, cache}));
  EXPECT_EQ(ReadFile("other name"), "new");
  EXPECT_EQ(ReadFile(kCacheFile), entry("linked", "new") + entry("protected", "old"));
  fs::permissions("protected", fs::perms::owner_all);
}

// An open file is a name and what it holds: who holds the old one keeps it.
TEST_F(HostileFiles, HeldFileIsReplacedUnderItsHolder) {
  WriteFile("held", "old");
  std::ifstream holder("held", std::ios::binary);
  Publish({{"held", "new"}});
  RunBringsIntoLine({{"held", "new"}});
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(holder), {}), "old");
}

TEST_F(HostileFiles, NamesThatDifferOnlyInCase) {
  WriteFile("data/name.dat", "old");
  Publish({{"DATA\\Name.DAT", "one edition"}, {"data\\name.dat", "another"}},
          "DEL : Data\\NAME.dat\r\n");
  RunBringsIntoLine({{"DATA/Name.DAT", "one edition"}, {"data/name.dat", "another"}});
}

// A disk of 64 KiB that the test fills, protects, and frees again.
class SmallDisk : public HostileFiles {
 protected:
  ~SmallDisk() override {
    fs::current_path(folder_.path());
    if (mounted_) umount("disk");
  }
  void SetUp() override {
    fs::create_directory("disk");
    mounted_ = mount("velmora-test", "disk", "tmpfs", 0, "size=64k") == 0;
    if (!mounted_) GTEST_SKIP() << "no disk can be mounted here";
    fs::current_path("disk");
  }
  static int Protect(bool protects) {
    const unsigned long access = protects ? MS_RDONLY : 0;
    return mount("velmora-test", fs::current_path().c_str(), "tmpfs", MS_REMOUNT | access,
                 "size=64k");
  }

  bool mounted_ = false;
};

TEST_F(SmallDisk, ThatIsFull) {
  const Files game = {{"d\\large", std::string(30000, 'n')}, {"d\\small", "new"}};
  WriteFile("d/large", std::string(20000, 'o'));
  WriteFile("filler", std::string(24000, 'f'));
  Publish(game);
  RunIsStoppedBy("d\\large");
  EXPECT_EQ(ReadFile("d/large"), std::string(20000, 'o'));
  EXPECT_EQ(ReadFile("d/small"), "(none)");
  fs::remove("filler");
  RunBringsIntoLine({{"d/large", game.at("d\\large")}, {"d/small", "new"}});
}

// A player has moved a large file to another disk. It is written in place there, and what came of
// it isn't believed, though the cache vouched for the file that had gone.
TEST_F(SmallDisk, ThatIsFullBehindALink) {
  fs::current_path("..");
  const std::string content(50000, 'n');
  WriteFile("disk/filler", std::string(40000, 'f'));
  fs::create_symlink("disk/large", "large");
  WriteFile(kCacheFile, "large " + Sha1(content) + " 50000 " + Sha1(content) + " 50000 0\r\n");
  Publish({{"large", content}});
  RunIsStoppedBy("large");
  EXPECT_LT(fs::file_size("disk/large"), content.size());
  EXPECT_TRUE(fs::is_symlink("large"));
  fs::remove("disk/filler");
  ResetDialog();
  ASSERT_TRUE(Run());
  EXPECT_EQ(ReadFile("disk/large"), content);
  EXPECT_TRUE(fs::is_symlink("large"));
}

// A player has moved a folder to a disk with room, and the installation's own is full.
TEST_F(SmallDisk, ThatIsFullBesideALinkToAnother) {
  fs::create_directory("../roomy");
  fs::create_directory_symlink("../roomy", "data");
  WriteFile("filler", std::string(65536, 'f'));
  Publish({{"data\\large", std::string(200000, 'n')}});
  ResetDialog();
  ASSERT_TRUE(Run());
  EXPECT_TRUE(EventsOf("box").empty());
  EXPECT_EQ(fs::file_size("../roomy/large"), 200000U);
  EXPECT_FALSE(fs::exists("../roomy/_VelmoraUpdate.new"));
}

TEST_F(SmallDisk, NobodyTakesHalfACopyForAWholeOne) {
  WriteFile("../from", std::string(100000, 'x'));
  EXPECT_FALSE(platform::CopyFileOver("../from", "to"));
  EXPECT_FALSE(fs::exists("to"));
}

TEST_F(SmallDisk, CacheKeepsTheLinesThatWentIn) {
  FileRecord record;
  for (int i = 200; i > 0; --i) {
    record.path = "file" + std::to_string(1000 + i);
    record.transferHash = record.contentHash = Sha1(record.path);
    record.transferSize = record.contentSize = "1";
    RememberVerified(record);
  }
  WriteFile("filler", std::string(56000, 'f'));
  SaveVerifyCache();
  EXPECT_EQ(VerifyCache.Count(), 0U);
  LoadVerifyCache();
  EXPECT_GT(VerifyCache.Count(), 50U);
  EXPECT_LT(VerifyCache.Count(), 200U);
  EXPECT_TRUE(IsVerifiedUnchanged(record));
}

TEST_F(SmallDisk, ThatIsReadOnly) {
  WriteFile("d/old", "old");
  WriteFile("gone", "old");
  Publish({{"d\\old", "new"}, {"e\\new", "new"}}, "DEL : gone\r\n");
  ASSERT_EQ(Protect(true), 0);
  RunIsStoppedBy("d\\old");
  EXPECT_EQ(FilesHere(), (Files{{"d/old", "old"}, {"gone", "old"}}));
  ASSERT_EQ(Protect(false), 0);
  RunBringsIntoLine({{"d/old", "new"}, {"e/new", "new"}});
}

#endif

}  // namespace
}  // namespace velmora::test
