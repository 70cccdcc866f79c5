// Files and disks that stand in the patcher's way, met by whole runs. The player is told of what
// fails, the old files stay, and the next run completes once the obstacle is gone.
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
#include "support/recording_dialog.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;

class HostileFiles : public EngineTest {
 protected:
  // For a run that ends at a record because its file can't be installed.
  void RunIsStoppedBy(const std::string& path) {
    ResetDialog();
    ASSERT_TRUE(Run());
    EXPECT_EQ(UpdateState, kNotRunning);
    ASSERT_EQ(EventsOf("box").size(), 1U);
    EXPECT_NE(EventsOf("box")[0].find(path), std::string::npos) << EventsOf("box")[0];
    EXPECT_EQ(ReadFile("_VelmoraUpdate.new"), "(none)");
  }
  void RunCompletes(const Files& expected) {
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
    if (error) GTEST_SKIP() << "the system refuses links: " << error.message();
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
  const Files complete = {{"a", "new"}, {"data/sub/b", "new"}};
  WriteFile("data/sub", "a file in the way");
  WriteFile("a/inside/own", "the player's");
  Publish(game);
  RunIsStoppedBy("a");
  EXPECT_EQ(LogMessagesWith(" CreateFile() : file a : Err = ").size(), 1U);
  EXPECT_EQ(FilesHere(),
            (Files{{"a/inside/own", "the player's"}, {"data/sub", "a file in the way"}}));
  fs::remove_all("a");
  RunIsStoppedBy("data\\sub\\b");
  EXPECT_EQ(LogMessagesWith("MakeSureDirectoryPathExists() : file data\\sub\\b ").size(), 1U);
  EXPECT_EQ(FilesHere(), (Files{{"a", "new"}, {"data/sub", "a file in the way"}}));

  // Removals come first, so the publisher can clear the way. But each run finds it to remove again.
  Publish(game, "DEL : data\\sub\r\n");
  RunCompletes(complete);
  RunCompletes(complete);
}

// Windows refuses to write one too, but Wine doesn't for the superuser.
TEST_F(HostileFiles, ReadOnlyFileIsNeitherRemovedNorWritten) {
  WriteFile("d/protected", "the player's choice");
  fs::permissions("d/protected", fs::perms::owner_read);
  Publish({}, "DEL : d\\protected\r\n");
  RunCompletes({{"d/protected", "the player's choice"}});
  Publish({{"d\\protected", "new"}});
#ifndef _WIN32
  RunIsStoppedBy("d\\protected");
  EXPECT_EQ(FilesHere(), (Files{{"d/protected", "the player's choice"}}));
#endif
  fs::permissions("d/protected", fs::perms::owner_all);
  RunCompletes({{"d/protected", "new"}});
}

#ifdef _WIN32

TEST_F(HostileFiles, HeldFileIsToldAndWaitedFor) {
  WriteFile("shared", "old and longer");
  WriteFile("held", "old");
  const int held = _sopen("held", _O_RDONLY, _SH_DENYRW, 0);
  std::ifstream shared("shared", std::ios::binary);  // keeps it from being replaced
  Publish({{"held", "new"}, {"shared", "new"}});
  RunIsStoppedBy("held");
  _close(held);
  EXPECT_EQ(ReadFile("held"), "old");
  RunCompletes({{"held", "new"}, {"shared", "new"}});
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
    RunCompletes({{"d/hidden", "new"}});
  }
}

// Another program opens a file for a moment and doesn't share it.
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
  RunCompletes({{"d/file", "new"}});
  scanner.join();
}

// One file for the system, two for the list: each line is applied to the file as it is then.
TEST_F(HostileFiles, NamesThatDifferOnlyInCase) {
  WriteFile("data/name.dat", "old");
  Publish({{"DATA\\Name.DAT", "one edition"}});
  RunCompletes({{"data/name.dat", "one edition"}});
  Publish({{"DATA\\Name.DAT", "one edition"}, {"data\\name.dat", "another"}});
  RunCompletes({{"data/name.dat", "another"}});
}

#else

// A new file gets its folder's group; a replaced one keeps its mode and extended attributes.
TEST_F(HostileFiles, NewFilesBelongToTheirFolderAndOldOnesKeepWhatTheyHad) {
  constexpr gid_t kGroup = 12345;
  fs::create_directory("shared");
  WriteFile("old", "old");
  ASSERT_EQ(setxattr("old", "user.note", "kept", 4, 0), 0);
  ASSERT_EQ(chmod("old", 0640), 0);
  const bool hasGroups = chown("shared", getuid(), kGroup) == 0 && chmod("shared", 02775) == 0;
  Publish({{"old", "new"}, {"shared\\file", "new"}});
  RunCompletes({{"old", "new"}, {"shared/file", "new"}});
  char note[4];
  EXPECT_EQ(getxattr("old", "user.note", note, sizeof note), 4);
  struct stat status {};
  ASSERT_EQ(stat("old", &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  ASSERT_EQ(stat("shared/file", &status), 0);
  EXPECT_TRUE(!hasGroups || status.st_gid == kGroup) << status.st_gid;
}

// The cache stays as long as it isn't known that a file can be written. After a file was written in
// place, the cache is back before the next file is touched.
TEST_F(HostileFiles, WritingInPlaceLeavesTheCacheWhole) {
  const std::string cache = CacheEntry("linked", "old") + CacheEntry("protected", "old");
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
  EXPECT_EQ(ReadFile(kCacheFile), CacheEntry("linked", "new") + CacheEntry("protected", "old"));
  fs::permissions("protected", fs::perms::owner_all);
}

// A disk of 64 KiB.
class SmallDisk : public HostileFiles {
 protected:
  ~SmallDisk() override {
    fs::current_path(folder_.path());
    if (mounted_) umount("disk");
  }
  void SetUp() override {
    fs::create_directory("disk");
    mounted_ = mount("velmora-test", "disk", "tmpfs", 0, "size=64k") == 0;
    if (!mounted_) GTEST_SKIP() << "the system refuses to mount a disk";
    fs::current_path("disk");
  }
  static int Protect(bool protects) {
    const unsigned long access = protects ? MS_RDONLY : 0;
    return mount("velmora-test", fs::current_path().c_str(), "tmpfs", MS_REMOUNT | access,
                 "size=64k");
  }

  bool mounted_ = false;
};

TEST_F(SmallDisk, ThatIsReadOnlyOrFull) {
  const Files before = {
      {"d/large", std::string(20000, 'o')}, {"filler", std::string(24000, 'f')}, {"gone", "old"}};
  for (const auto& [path, content] : before) WriteFile(path, content);
  const std::string content(30000, 'n');
  Publish({{"d\\large", content}, {"d\\small", "new"}}, "DEL : gone\r\n");
  ASSERT_EQ(Protect(true), 0);
  RunIsStoppedBy("d\\large");
  EXPECT_EQ(FilesHere(), before);
  ASSERT_EQ(Protect(false), 0);
  RunIsStoppedBy("d\\large");
  EXPECT_EQ(ReadFile("d/large"), before.at("d/large"));
  fs::remove("filler");
  RunCompletes({{"d/large", content}, {"d/small", "new"}});
}

// A player has moved a large file to another disk. It is written in place there, and the incomplete
// file isn't believed, although the cache vouched for the one that it replaces.
TEST_F(SmallDisk, ThatIsFullBeyondALink) {
  fs::current_path("..");
  const std::string content(50000, 'n');
  WriteFile("disk/filler", std::string(40000, 'f'));
  fs::create_symlink("disk/large", "large");
  WriteFile(kCacheFile, CacheEntry("large", content));
  Publish({{"large", content}});
  RunIsStoppedBy("large");
  EXPECT_LT(fs::file_size("disk/large"), content.size());
  fs::remove("disk/filler");
  RunCompletes({{"disk/large", content}, {"large", content}});
  EXPECT_TRUE(fs::is_symlink("large"));
}

// A player has moved a folder to a larger disk, and the installation's own is full.
TEST_F(SmallDisk, ThatIsFullBesideALinkToAnother) {
  fs::create_directory("../roomy");
  fs::create_directory_symlink("../roomy", "data");
  WriteFile("filler", std::string(65536, 'f'));
  Publish({{"data\\large", std::string(200000, 'n')}});
  RunCompletes({{"filler", ReadFile("filler")}});
  EXPECT_EQ(fs::file_size("../roomy/large"), 200000U);
  EXPECT_FALSE(fs::exists("../roomy/_VelmoraUpdate.new"));
}

#endif

}  // namespace
}  // namespace velmora::test
