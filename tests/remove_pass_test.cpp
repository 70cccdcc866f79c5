#include "engine/remove_pass.h"

#include <gtest/gtest.h>

#include <algorithm>
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
  static void MakeTree() {
    for (const char* file : {"top.tmp", "top.dat", "noext", "data/a.tmp", "data/b.dat",
                             "data/sub/c.tmp", "data/sub/deep/d.tmp", "other/e.dat"}) {
      WriteFile(file, "x");
    }
    fs::create_directories("data/empty");
  }
  static Lines Names() {
    Lines names;
    for (const auto& entry : fs::recursive_directory_iterator(".")) {
      const std::string name = entry.path().lexically_relative(".").generic_string();
      if (name != "session.log") names.push_back(name + (entry.is_directory() ? "/" : ""));
    }
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(Removal, ItemsByKind) {
  const Lines all = {"data/",     "data/a.tmp",     "data/b.dat",     "data/empty/",
                     "data/sub/", "data/sub/c.tmp", "data/sub/deep/", "data/sub/deep/d.tmp",
                     "noext",     "other/",         "other/e.dat",    "top.dat",
                     "top.tmp"};
  const struct {
    const char* path;
    const char* mode;
    bool result;
    Lines gone;
  } cases[] = {
      {"top.dat", "", true, {"top.dat"}},
      {"data\\b.dat", "", true, {"data/b.dat"}},
      {"missing", "", false, {}},
      {"", "", false, {}},
      {"*.tmp", "", false, {}},
      {"*.tmp", "r", false, {}},
      {"data",
       "",
       true,
       {"data/", "data/a.tmp", "data/b.dat", "data/empty/", "data/sub/", "data/sub/c.tmp",
        "data/sub/deep/", "data/sub/deep/d.tmp"}},
      {"data\\empty", "x", true, {"data/empty/"}},
      {"*.tmp", "R", true, {"data/a.tmp", "data/sub/c.tmp", "data/sub/deep/d.tmp", "top.tmp"}},
      {"*.TMP", "Rest", true, {"data/a.tmp", "data/sub/c.tmp", "data/sub/deep/d.tmp", "top.tmp"}},
      {"top.tmp", "R", true, {"top.tmp"}},
      // A bare name is matched against the full path: not found below a directory.
      {"c.tmp", "R", true, {}},
      {"*\\c.tmp", "R", true, {"data/sub/c.tmp"}},
      {"data\\*.tmp", "R", true, {"data/a.tmp", "data/sub/c.tmp", "data/sub/deep/d.tmp"}},
      {"data\\?.tmp", "R", true, {"data/a.tmp"}},
      {"*.*", "", false, {}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::string(test.path) + "," + test.mode);
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
    MakeTree();
    ASSERT_EQ(Names(), all);
    EXPECT_EQ(RemoveItem(test.path, test.mode), test.result);
    Lines left;
    std::set_difference(all.begin(), all.end(), test.gone.begin(), test.gone.end(),
                        std::back_inserter(left));
    EXPECT_EQ(Names(), left);
  }
}

TEST_F(Removal, EverythingPatternEmptiesTheTree) {
  MakeTree();
  EXPECT_TRUE(RemoveItem("*.*", "R"));
  EXPECT_TRUE(Names().empty());
}

TEST_F(Removal, WalkShowsAndLogsEachStep) {
  WriteFile("d/sub/f.dat", "x");
  EXPECT_TRUE(RemoveItem("d", ""));
  const std::string removing = std::string("status ") + texts::kRemovingEntry;
  EXPECT_EQ(Dialog().events, (Lines{removing + "d\\sub", removing + "d\\sub\\f.dat"}));
  EXPECT_EQ(LogMessages(), Lines{"[RemoveDir] DeleteFile( d\\sub\\f.dat ) Succeed. "});
}

TEST_F(Removal, FailuresAreLoggedOnEveryLevel) {
  WriteFile("d/sub/kept.dat", "x");
  fs::permissions("d/sub/kept.dat", fs::perms::owner_read);
  EXPECT_FALSE(RemoveItem("d", ""));
  EXPECT_EQ(LogMessages(),
            (Lines{"[Error] DeleteFile() d\\sub\\kept.dat Couldn't delete this file. ",
                   "[Error] RemoveFiles() d\\sub\\* Couldn't delete this file. ",
                   "[Error]RemoveDirectory() d\\sub\\ Couldn't delete this directory. ",
                   "[Error]RemoveDirectory() .\\d Couldn't delete this directory. "}));
  EXPECT_EQ(ReadFile("d/sub/kept.dat"), "x");

  fs::remove("session.log");
  EXPECT_FALSE(RemoveItem("*.dat", "R"));
  EXPECT_EQ(LogMessages(),
            Lines{"[Error] DeleteFile() d\\sub\\kept.dat Couldn't delete this file. "});
  fs::remove("session.log");
  EXPECT_FALSE(RemoveFiles(".\\missing\\*", "*.*"));
  EXPECT_EQ(LogMessages(),
            Lines{"RemoveFiles() : FindFirstFile() :: Couldn't find file .\\missing\\*."});
  fs::permissions("d/sub/kept.dat", fs::perms::owner_all);
}

TEST_F(Removal, CancelUnwindsThroughEveryLevel) {
  WriteFile("d/sub/f.dat", "x");
  Dialog().onEvent = [](const std::string& event) {
    if (event.ends_with("d\\sub")) UpdateState = kCancelAsked;
  };
  FileRecordSet set;
  FileRecord record;
  record.path = "d";
  set.InsertRecord(record);
  // It was the last record, so that the pass itself doesn't see the cancel.
  EXPECT_TRUE(RemovePass(set));
  EXPECT_EQ(LogMessages(),
            (Lines{"[Error] RemoveFiles() d\\sub\\* Couldn't delete this file. ",
                   "[Error]RemoveDirectory() d\\sub\\ Couldn't delete this directory. ",
                   "[Error]RemoveDirectory() .\\d Couldn't delete this directory. ",
                   "[Error] RemoveFiles( d ) Couldn't delete this file. "}));
  EXPECT_EQ(Dialog().events.back(), "stepit 1002");
  EXPECT_EQ(ReadFile("d/sub/f.dat"), "x");
  EXPECT_FALSE(RemovePass(set));
}

TEST_F(Removal, PathsBeyondTheirLimitAreLeftAlone) {
  // Below "deep", one directory fits with its search text and one doesn't; one file fits and one
  // doesn't.
  const std::string deep = "deep\\" + std::string(200, 'd');
  const std::string native = "deep/" + std::string(200, 'd');
  const std::size_t room = 259 - deep.size() - 1;
  const std::string fits(room, 'f');
  const std::string tooLong(room + 1, 'g');
  WriteFile(native + "/" + fits, "x");
  WriteFile(native + "/" + tooLong, "x");
  WriteFile(native + "/" + std::string(room - 1, 'h') + "/file", "x");
  EXPECT_FALSE(RemoveItem("deep", ""));
  EXPECT_FALSE(fs::exists(native + "/" + fits));
  EXPECT_TRUE(fs::exists(native + "/" + tooLong));
  EXPECT_TRUE(fs::exists(native + "/" + std::string(room - 1, 'h') + "/file"));
  EXPECT_EQ(LogMessagesWith("path can't be used").size(), 2U);

  EXPECT_FALSE(RemoveItem(std::string(100, 'a') + "\\" + std::string(200, 'a'), ""));
  fs::create_directories(std::string(100, 'b') + "/" + std::string(155, 'b'));
  EXPECT_FALSE(RemoveItem(std::string(100, 'b') + "\\" + std::string(155, 'b'), ""));
  EXPECT_TRUE(fs::exists(std::string(100, 'b') + "/" + std::string(155, 'b')));
}

}  // namespace
}  // namespace velmora::test
