// What only this system has: links, fifos, permissions, a running program that could be unlinked.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "platform/files.h"
#include "platform/ini.h"
#include "platform/memory.h"
#include "platform/paths.h"
#include "platform/posix/native_path.h"
#include "platform/url.h"
#include "support/workspace.h"

namespace velmora::platform {
namespace {

namespace fs = std::filesystem;
using test::ReadFile;
using test::WriteFile;

class PosixPlatform : public ::testing::Test {
 protected:
  static std::set<std::string> Listed(const std::string& searchPath) {
    DirectorySearch search(searchPath);
    EXPECT_TRUE(search.Started()) << searchPath;
    std::set<std::string> names;
    DirectoryEntry entry;
    while (search.Next(entry)) names.insert(entry.name + (entry.isDirectory ? "\\" : ""));
    return names;
  }

 private:
  test::TemporaryFolder folder_;
};

// A copy of `sleep` that runs until the object dies.
class RunningProgram {
 public:
  explicit RunningProgram(const std::string& native) {
    fs::copy_file("/bin/sleep", native);
    int started[2];
    EXPECT_EQ(pipe2(started, O_CLOEXEC), 0);
    process_ = fork();
    if (process_ == 0) {
      execl(native.c_str(), native.c_str(), "60", nullptr);
      _exit(127);
    }
    close(started[1]);
    char byte = 0;
    EXPECT_EQ(read(started[0], &byte, 1), 0) << "the pipe closes when the program has started";
    close(started[0]);
  }
  ~RunningProgram() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

 private:
  pid_t process_ = -1;
};

TEST_F(PosixPlatform, ARunningProgramIsNeitherRemovedNorReplacedUntilItEnds) {
  const auto size = fs::file_size("/bin/sleep");
  {
    const RunningProgram program("program");
    EXPECT_FALSE(RemoveFile("program"));
    EXPECT_EQ(LastSystemError(), ETXTBSY);
    EXPECT_FALSE(CopyFileOver("/bin/true", "program"));
    EXPECT_EQ(LastSystemError(), ETXTBSY);
    EXPECT_FALSE(OutputFile("program", OutputFile::Mode::kReplace).IsOpen());
    EXPECT_EQ(LastSystemError(), ETXTBSY);
    EXPECT_EQ(fs::file_size("program"), size);
  }
  EXPECT_TRUE(RemoveFile("program"));
  EXPECT_FALSE(fs::exists("program"));
}

TEST_F(PosixPlatform, AFifoIsNoFileAndNobodyWaitsForItsOtherEnd) {
  ASSERT_EQ(mkfifo("fifo", 0666), 0);
  EXPECT_FALSE(InputFile("fifo").IsOpen());
  const int reader = open("fifo", O_RDONLY | O_NONBLOCK);
  EXPECT_FALSE(OutputFile("fifo", OutputFile::Mode::kAppend).IsOpen());
  close(reader);
  EXPECT_EQ(ReadIniValue("fifo", "Setting", "Data", 256), "");
  EXPECT_TRUE(RemoveFile("fifo"));
  EXPECT_FALSE(InputFile("/dev/null").IsOpen());
}

TEST_F(PosixPlatform, ReplacingKeepsTheModeAndRespectsIt) {
  WriteFile("tool", "old program");
  ASSERT_EQ(chmod("tool", 0754), 0);
  EXPECT_TRUE(OutputFile("tool", OutputFile::Mode::kReplace).Write("new", 3));
  EXPECT_EQ(fs::status("tool").permissions(), fs::perms(0754));

  for (const mode_t before : {0, 0600}) {
    ASSERT_TRUE(before == 0 || chmod("copy", before) == 0);
    EXPECT_TRUE(CopyFileOver("tool", "copy"));
    EXPECT_EQ(fs::status("copy").permissions(), fs::perms(0754));
  }

  ASSERT_EQ(chmod("tool", 0555), 0);
  EXPECT_FALSE(OutputFile("tool", OutputFile::Mode::kReplace).IsOpen());
  EXPECT_FALSE(OutputFile("tool", OutputFile::Mode::kAppend).IsOpen());
  EXPECT_EQ(LastSystemError(), EACCES);
  EXPECT_EQ(ReadFile("tool"), "new");
}

TEST_F(PosixPlatform, ListingGivesLinksAsFilesAndLeavesOutWhatAPathCannotName) {
  fs::create_directory("directory");
  fs::create_symlink("directory", "link");
  WriteFile("a\\b", "would read back as b in a");
  WriteFile("half\x81", "fine at the end of a path");
  fs::create_directory("half-directory\x81");
  WriteFile("whole\x95\\", "backslash inside a character");
  EXPECT_EQ(Listed(".\\*"), (std::set<std::string>{".\\", "..\\", "directory\\", "link", "half\x81",
                                                   "whole\x95\\"}));
}

TEST_F(PosixPlatform, AWalkDownADeepTreeHoldsNoDescriptors) {
  const auto openFiles = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  fs::create_directory("d");
  const auto before = openFiles();
  DirectorySearch first(".\\*");
  DirectorySearch second(".\\d\\*");
  EXPECT_TRUE(first.Started() && second.Started());
  EXPECT_EQ(openFiles(), before);
}

TEST_F(PosixPlatform, PathsBecomeNative) {
  const struct {
    std::string path;
    std::string native;
  } cases[] = {
      {"", ""},
      {"a\\b.txt", "a/b.txt"},
      {"./VelmoraUpdate.dat", "VelmoraUpdate.dat"},
      {".\\data\\", "data/"},
      {".\\", "."},
      {"\\", "/"},
      {"/usr\\lib", "/usr/lib"},
      {"a\\\\b", "a/b"},
      {"\x95\\\\x", "\x95\\/x"},  // the character 0x95 0x5C, then a separator
      {"\x81\\x", "\x81\\x"},
      {"x\x81/y", "x\x81/y"},  // a slash is never second
      {"link\\..\\b", "b"},
      {"..\\..\\b", "../../b"},
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

TEST_F(PosixPlatform, MakingDirectoriesStopsAtAFileAndAtNoHalfCharacter) {
  WriteFile("file", "kept");
  EXPECT_FALSE(MakeDirectoriesOf("file\\name"));
  EXPECT_EQ(LastSystemError(), ENOTDIR);
  EXPECT_EQ(ReadFile("file"), "kept");
  EXPECT_TRUE(MakeDirectoriesOf("\x95\\\x83\\.txt"));
  EXPECT_EQ(Listed(".\\*"), (std::set<std::string>{".\\", "..\\", "file"}));
}

TEST_F(PosixPlatform, MatchingStaysCheapForAHostilePattern) {
  std::string pattern;
  for (int i = 0; i < 200; ++i) pattern += "*a";
  EXPECT_FALSE(MatchPathPattern(std::string(4000, 'a') + "b", pattern));
  EXPECT_TRUE(MatchPathPattern(std::string(4000, 'a'), pattern));
  EXPECT_FALSE(MatchPathPattern("a", std::string(1'000'000, '*') + "b"));
}

// Where Windows' functions give something that no caller could use.
TEST(PosixUrls, OddInputs) {
  EXPECT_FALSE(CrackUrl("://h/a"));
  const auto url = CrackUrl("http://h/a#d?e");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->path + " " + url->extra, "/a #d?e");
  EXPECT_EQ(CanonicalizeUrlPath("\x83\x41\t\xB1 ", Canonicalize::kUnsafe, 260), "%83A%09%B1%20");
  EXPECT_EQ(CanonicalizeUrlPath("/a/../../b:c", Canonicalize::kUnsafe, 260), "/a/../../b:c");
}

TEST_F(PosixPlatform, AnIniFileOfAbsurdSizeReadsAsAbsent) {
  WriteFile("big", "[Setting]\nData=x\n");
  EXPECT_EQ(ReadIniValue("big", "Setting", "Data", 256), "x");
  fs::resize_file("big", (16 << 20) + 1);
  EXPECT_EQ(ReadIniValue("big", "Setting", "Data", 256), "");
}

// Behind a large file come many small ones, and behind those none that is read at all.
TEST(PosixMemory, BlocksOfLargeFilesDontStay) {
  const auto resident = [] {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  };
  constexpr std::size_t kMiB = std::size_t{1} << 20;
  for (const std::size_t size : {60 * kMiB, 65 * kMiB}) {
    const std::size_t before = resident();
    void* const large = AllocateMemory(size, false);
    std::memset(large, 1, size);
    FreeMemory(large, size);
    if (size == 60 * kMiB) FreeMemory(AllocateMemory(8192, false), 8192);
    EXPECT_LT(resident(), before + 16 * kMiB) << size;
  }
}

}  // namespace
}  // namespace velmora::platform
