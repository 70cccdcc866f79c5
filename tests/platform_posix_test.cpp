// What only POSIX systems have: named pipes, permissions, paths of their own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <set>
#include <string>

#include "platform/files.h"
#include "platform/ini.h"
#include "platform/paths.h"
#include "platform/posix/native_path.h"
#include "support/workspace.h"

namespace velmora::platform {
namespace {

namespace fs = std::filesystem;
using Mode = OutputFile::Mode;
using test::WriteFile;

class PosixPlatform : public ::testing::Test {
  test::TemporaryFolder folder_;
};

TEST_F(PosixPlatform, AFifoIsNoFileAndOpeningItDoesNotWait) {
  ASSERT_EQ(mkfifo("fifo", 0666), 0);
  EXPECT_FALSE(InputFile("fifo").IsOpen());
  const int reader = open("fifo", O_RDONLY | O_NONBLOCK);
  EXPECT_FALSE(OutputFile("fifo", Mode::kAppend).IsOpen());
  close(reader);
  EXPECT_EQ(ReadIniValue("fifo", "Setting", "Data", 256), "");
  EXPECT_TRUE(RemoveFile("fifo"));
  EXPECT_FALSE(InputFile("/dev/null").IsOpen());
}

TEST_F(PosixPlatform, ReplacingKeepsOwnerAndMode) {
  const auto modeOf = [](const char* path) {
    return static_cast<int>(fs::status(path).permissions());
  };
  WriteFile("tool", "old program");
  ASSERT_EQ(chmod("tool", 0754), 0);
  EXPECT_TRUE(OutputFile("tool", Mode::kReplace).Write("new", 3));
  EXPECT_EQ(modeOf("tool"), 0754);
  for (const mode_t before : {0, 0600}) {
    ASSERT_TRUE(before == 0 || chmod("copy", before) == 0);
    EXPECT_TRUE(CopyFileOver("tool", "copy"));
    EXPECT_EQ(modeOf("copy"), 0754);
  }
  const bool isGivenAway = chown("tool", 1, 2) == 0;  // which only root may do
  WriteFile("fresh", "newer");
  EXPECT_TRUE(MoveFileOver("fresh", "tool"));
  EXPECT_EQ(modeOf("tool"), 0754);
  struct stat status {};
  EXPECT_EQ(stat("tool", &status), 0);
  EXPECT_TRUE(!isGivenAway || (status.st_uid == 1 && status.st_gid == 2));
  for (const char* name : {"game.EXE", "game.dat"}) {
    WriteFile("fresh", "new");
    ASSERT_EQ(chmod("fresh", 0640), 0);
    EXPECT_TRUE(MoveFileOver("fresh", name));
    EXPECT_EQ(modeOf(name), std::string(name) == "game.dat" ? 0640 : 0750);
  }
}

TEST_F(PosixPlatform, HalfACopyIsRemoved) {
  WriteFile("source", std::string(200'000, 'x'));
  const rlimit limit{100'000, RLIM_INFINITY};
  const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
  signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_FALSE(CopyFileOver("source", "copy")) << "no room for all of it";
  EXPECT_EQ(LastSystemError(), EFBIG);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
  EXPECT_FALSE(CopyFileOver("/proc/self/status", "copy")) << "its size isn't that of what is read";
  EXPECT_FALSE(fs::exists("copy"));
}

TEST_F(PosixPlatform, ListingGivesLinksAsFilesAndLeavesOutWhatAPathCannotName) {
  fs::create_directory("directory");
  fs::create_symlink("directory", "link");
  WriteFile("a\\b", "would read back as b in a");
  WriteFile("half\x81", "fine at the end of a path");
  fs::create_directory("half-directory\x81");
  WriteFile("whole\x95\\", "backslash inside a character");
  std::set<std::string> names;
  fs::create_directory("half\x81\\");
  EXPECT_FALSE(ListDirectory("half\x81\\")) << "not the directory of the name without its half";
  fs::remove("half\x81\\");
  const auto listed = ListDirectory(".\\");
  for (const DirectoryEntry& entry : listed.value()) {
    names.insert(entry.name + (entry.isDirectory ? "\\" : ""));
  }
  EXPECT_EQ(names, (std::set<std::string>{".\\", "..\\", "directory\\", "link", "half\x81",
                                          "whole\x95\\"}));
}

TEST_F(PosixPlatform, PathsBecomeNative) {
  const struct {
    std::string path;
    std::string native;
  } cases[] = {
      {"", ""},
      {".\\", "."},
      {"\\", "/"},
      {"./VelmoraUpdate.dat", "VelmoraUpdate.dat"},
      {".\\data\\", "data/"},
      {"/usr\\lib", "/usr/lib"},
      {"a\\\\b", "a/b"},
      {"\x95\\\\x", "\x95\\/x"},  // the character 0x95 0x5C, then a separator
      {"\x81\\x", "\x81\\x"},
      {"a\\..\\..\\b", "../b"},
      {"\\..\\b", "/b"},
      {"..b\\.c", "..b/.c"},
      {std::string("cut\0here", 8), ""},
  };
  for (const auto& c : cases) EXPECT_EQ(NativePath(c.path), c.native) << c.path;
}

// The walk that deletes lists a directory under one spelling and deletes its entries under another;
// the two must never be different directories.
TEST_F(PosixPlatform, AJoinedPathStaysInTheDirectoryThatWasListed) {
  for (const std::string directory : {".\\", ".\\a\\", ".\\a\\..\\b\\", "..\\..\\a\\", "\\a\\..\\",
                                      ".\\a/../b\\", ".\\\x95\\c\\", "a\\\\b\\"}) {
    for (const std::string name : {"f", "..f", "...", ".f", "C:", "C:f", "\x95\\"}) {
      const auto joined = JoinPath(directory, name);
      ASSERT_TRUE(joined.has_value());
      EXPECT_EQ(fs::path(NativePath(*joined)),
                (fs::path(NativePath(directory)) / name).lexically_normal())
          << directory << " + " << name;
    }
  }
}

TEST_F(PosixPlatform, MatchingStaysCheapForAHostilePattern) {
  std::string pattern;
  for (int i = 0; i < 200; ++i) pattern += "*a";
  EXPECT_FALSE(MatchPathPattern(std::string(4000, 'a') + "b", pattern));
  EXPECT_TRUE(MatchPathPattern(std::string(4000, 'a'), pattern));
  EXPECT_FALSE(MatchPathPattern("a", std::string(1'000'000, '*') + "b"));
}

}  // namespace
}  // namespace velmora::platform
