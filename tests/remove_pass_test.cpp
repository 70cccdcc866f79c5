#include "engine/remove_pass.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "base/texts.h"
#include "engine/update_state.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

class Removal : public EngineTest {
 protected:
  // What stands below the working directory, each name followed by a space.
  static std::string Names() {
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(".")) {
      const std::string name = entry.path().lexically_relative(".").generic_string();
      if (name != "session.log") names.insert(name + (entry.is_directory() ? "/ " : " "));
    }
    std::string text;
    for (const std::string& name : names) text += name;
    return text;
  }
};

TEST_F(Removal, ItemsByKind) {
  const struct {
    const char* path;
    const char* mode;
    bool result;
    std::string left;
  } cases[] = {
      {"top.dat", "", true, "d/ d/a.tmp d/b.dat d/empty/ d/sub/ d/sub/c.tmp noext top.tmp "},
      {"d\\b.dat", "", true, "d/ d/a.tmp d/empty/ d/sub/ d/sub/c.tmp noext top.dat top.tmp "},
      {"d\\empty", "x", true, "d/ d/a.tmp d/b.dat d/sub/ d/sub/c.tmp noext top.dat top.tmp "},
      {"d", "", true, "noext top.dat top.tmp "},
      {"*.tmp", "R", true, "d/ d/b.dat d/empty/ d/sub/ noext top.dat "},
      {"*.TMP", "Rest", true, "d/ d/b.dat d/empty/ d/sub/ noext top.dat "},
      {"*.*", "R", true, ""},
      // A pattern is matched against the full path, so a bare name means the top folder only.
      {"top.tmp", "R", true, "d/ d/a.tmp d/b.dat d/empty/ d/sub/ d/sub/c.tmp noext top.dat "},
      {"*\\c.tmp", "R", true, "d/ d/a.tmp d/b.dat d/empty/ d/sub/ noext top.dat top.tmp "},
      {"d\\*.tmp", "R", true, "d/ d/b.dat d/empty/ d/sub/ noext top.dat top.tmp "},
      {"d\\?.tmp", "R", true, "d/ d/b.dat d/empty/ d/sub/ d/sub/c.tmp noext top.dat top.tmp "},
      {"c.tmp", "R", true, "all"},
      // Without a wildcard it takes the file and never the folder; a separator at the end, the
      // other way round.
      {"D\\b.dat", "R", true, "d/ d/a.tmp d/empty/ d/sub/ d/sub/c.tmp noext top.dat top.tmp "},
      {"d\\sub", "R", true, "all"},
      {"d\\sub\\", "", true, "d/ d/a.tmp d/b.dat d/empty/ noext top.dat top.tmp "},
      {"d\\b.dat\\", "", false, "all"},
      {"missing", "", false, "all"},
      {"", "", false, "all"},
      {"*.tmp", "r", false, "all"},
      {"*.*", "", false, "all"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::string(test.path) + "," + test.mode);
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
    for (const char* file : {"top.tmp", "top.dat", "noext", "d/a.tmp", "d/b.dat", "d/sub/c.tmp"}) {
      WriteFile(file, "x");
    }
    fs::create_directory("d/empty");
    const std::string all = Names();
    EXPECT_EQ(RemoveItem(test.path, test.mode), test.result);
    EXPECT_EQ(Names(), test.left == "all" ? all : test.left);
  }
}

TEST_F(Removal, WalkShowsAndLogsEachStep) {
  WriteFile("d/sub/f.dat", "x");
  EXPECT_TRUE(RemoveItem("d", ""));
  const std::string removing = std::string("status ") + texts::kRemovingEntry;
  EXPECT_EQ(Dialog().events, (Lines{removing + "d\\sub", removing + "d\\sub\\f.dat"}));
  EXPECT_EQ(LogMessages(), Lines{"[RemoveDir] DeleteFile( d\\sub\\f.dat ) Succeed. "});
}

TEST_F(Removal, FailuresAreLoggedOnEveryLevel) {
  const auto fails = [](const auto& removal, const Lines& logged) {
    fs::remove("session.log");
    EXPECT_FALSE(removal());
    EXPECT_EQ(LogMessages(), logged);
  };
  const std::string file = "[Error] DeleteFile() d\\sub\\kept.dat Couldn't delete this file. ";
  WriteFile("d/sub/kept.dat", "x");
  fs::permissions("d/sub/kept.dat", fs::perms::owner_read);
  fails([] { return RemoveItem("d", ""); },
        {file, "[Error] RemoveFiles() d\\sub\\* Couldn't delete this file. ",
         "[Error]RemoveDirectory() d\\sub\\ Couldn't delete this directory. ",
         "[Error]RemoveDirectory() .\\d Couldn't delete this directory. "});
  fails([] { return RemoveItem("*.dat", "R"); }, {file});
  fails([] { return RemoveFiles(".\\missing\\*", "*.*"); },
        {"RemoveFiles() : FindFirstFile() :: Couldn't find file .\\missing\\*."});
  EXPECT_EQ(Names(), "d/ d/sub/ d/sub/kept.dat ");
  fs::permissions("d/sub/kept.dat", fs::perms::owner_all);
}

TEST_F(Removal, CancelUnwindsThroughEveryLevel) {
  WriteFile("d/sub/f.dat", "x");
  Dialog().onEvent = [](const std::string& event) {
    if (event.ends_with("d\\sub")) UpdateState = kCancelAsked;
  };
  FileRecord record;
  record.path = "d";
  FileRecordSet set;
  set.InsertRecord(record);
  // It was the last record, so the pass itself doesn't see the cancel.
  EXPECT_TRUE(RemovePass(set));
  EXPECT_EQ(LogMessages(),
            (Lines{"[Error] RemoveFiles() d\\sub\\* Couldn't delete this file. ",
                   "[Error]RemoveDirectory() d\\sub\\ Couldn't delete this directory. ",
                   "[Error]RemoveDirectory() .\\d Couldn't delete this directory. ",
                   "[Error] RemoveFiles( d ) Couldn't delete this file. "}));
  EXPECT_EQ(Dialog().events.back(), "stepit 1002");
  EXPECT_EQ(Names(), "d/ d/sub/ d/sub/f.dat ");
  EXPECT_FALSE(RemovePass(set));
}

// A full path has at most 259 bytes. So has a folder's with the "\\*" of its search.
TEST_F(Removal, PathsBeyondTheirLimitAreLeftAlone) {
  const std::string folder = "d/" + std::string(200, 'd');
  const std::string file = folder + "/" + std::string(57, 'f');
  const std::string subfolder = folder + "/" + std::string(55, 's');
  const std::string left[] = {file, subfolder + "/f"};
  const std::string removed[] = {file.substr(0, 259), subfolder.substr(0, 257) + "/f"};
  for (const std::string& name : left) WriteFile(name, "x");
  for (const std::string& name : removed) WriteFile(name, "x");
  EXPECT_FALSE(RemoveItem("d", ""));
  for (const std::string& name : left) EXPECT_TRUE(fs::exists(name)) << name;
  for (const std::string& name : removed) EXPECT_FALSE(fs::exists(name)) << name;
  EXPECT_EQ(LogMessagesWith("path can't be used").size(), 2U);

  const std::string item = "e/" + std::string(254, 'i');
  fs::create_directories(item);
  EXPECT_FALSE(RemoveItem("e\\" + item.substr(2), ""));
  EXPECT_TRUE(fs::exists(item));
}

}  // namespace
}  // namespace velmora::test
