// What is different for velmora-publish where names are Unicode, and upper and lower case the same.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "platform/disk.h"
#include "platform/file_lock.h"
#include "publish/build/prune.h"
#include "publish/build/publication.h"
#include "publish/build/tree_names.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"
#include "support/publish_tool.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;
using test::ReadFile;
using test::RunPublish;
using test::WriteFile;

class UnicodeNames : public testing::Test {
 protected:
  UnicodeNames() {
    options_.tree = "tree";
    options_.output = "out";
    options_.maxRemovedPercent = 100;
    fs::create_directory("tree");
  }

  void Add(const char8_t* name, const std::string& content = "content") const {
    const fs::path file = options_.tree / fs::path(name);
    fs::create_directories(file.parent_path());
    WriteFile(file, content);
  }

  // What is said about each name; empty if all of them are published.
  [[nodiscard]] std::string Refusal() const try {
    BuildPublication(options_);
    return {};
  } catch (const PublishError& error) {
    return error.what();
  }

  const test::TemporaryFolder folder_;
  BuildOptions options_;
};

TEST_F(UnicodeNames, BecomeCodePage932InTheListAndStayAsTheyAreOnTheDisk) {
  Add(u8"日本/カタカナ.txt", std::string(5000, 'a'));
  Add(u8"ﾊﾝｶｸ～.bin");
  ASSERT_EQ(Refusal(), "");
  const std::string list = ReadFile("out/hashlist.dat");
  EXPECT_NE(list.find("FILE : \x93\xFA\x96{\\\x83J\x83^\x83J\x83i.txt.compressed, "), list.npos);
  EXPECT_NE(list.find("FILE : \xCA\xDD\xB6\xB8\x81`.bin, "), list.npos);
  EXPECT_TRUE(fs::exists(fs::path("out") / u8"日本" / u8"カタカナ.txt.compressed"));
  EXPECT_EQ(ReadFile(fs::path("out") / u8"ﾊﾝｶｸ～.bin"), "content");
  const std::string record = ReadFile("out/.velmora-publish");
  EXPECT_NE(record.find("payload \x93\xFA\x96{/\x83J\x83^\x83J\x83i.txt.compressed\n"),
            record.npos);
  BuildPublication(options_);
  EXPECT_EQ(ReadFile("out/hashlist.dat"), list);
}

TEST_F(UnicodeNames, WithoutAFormAreNamedAndRefused) {
  const struct {
    const char8_t* name;
    const char* why;
  } cases[] = {{u8"Grüße", "U+00FC"},
               {u8"\U0001F600", "U+1F600"},
               {u8"か\u3099", "convmv --nfc"},
               {u8"表.dat", "the byte 5C"},
               {u8"ソ連/a", "the byte 5C"}};
  for (const auto& [name, why] : cases) {
    Add(name);
    EXPECT_NE(Refusal().find(why), std::string::npos) << why << ": " << Refusal();
    fs::remove_all("tree");
  }
  // Not every disk takes half a character.
  const ListName half = ListNameOf(TextOf(std::wstring(L"half \xD800")), NameEncoding::kGuess);
  EXPECT_TRUE(half.fault.starts_with("holds U+FFFD")) << half.fault;
  EXPECT_FALSE(fs::exists("out/hashlist.dat"));
}

TEST_F(UnicodeNames, ThatDifferInCaseAreTheSame) {
  Add(u8"Data/а.txt");
  ASSERT_EQ(Refusal(), "");
  fs::remove_all("tree/Data");
  Add(u8"DATA/А.TXT");
  ASSERT_EQ(Refusal(), "");
  // The folder has the name of the first build, the list that of the second.
  PruneOptions prune;
  prune.output = "out";
  prune.deletes = true;
  EXPECT_TRUE(Prune(prune).needless.empty());
  EXPECT_EQ(ReadFile(fs::path("out/data") / u8"а.txt"), "content");
  options_.output = "TREE/out";
  EXPECT_NE(Refusal().find("neither of the tree and the publication"), std::string::npos);
  options_.output = "other";
  WriteFile("tree/HASHLIST.DAT", "");
  EXPECT_NE(Refusal().find("is taken in the publication"), std::string::npos) << Refusal();
}

TEST_F(UnicodeNames, LongPathsArePublished) {
  fs::current_path(fs::absolute("tree"));
  fs::path deep = fs::absolute(".");
  for (int i = 0; i < 3; ++i) fs::create_directory(deep /= std::string(60, 'd'));
  WriteFile(deep / "file", "content");
  fs::current_path("..");
  fs::path out = fs::absolute("out");
  for (int i = 0; i < 4; ++i) out /= std::string(60, 'o');
  options_.output = out;
  ASSERT_EQ(Refusal(), "");
  const fs::path payload = out / deep.lexically_relative(fs::absolute("tree")) / "file";
  EXPECT_GT(payload.native().size(), 400U);
  EXPECT_EQ(ReadFile(payload), "content");
}

// As a web server, an editor or a virus scanner has it.
TEST_F(UnicodeNames, OfAFileThatIsInUseAreTold) {
  Add(u8"鍵.txt", "one");
  ASSERT_EQ(Refusal(), "");
  Add(u8"鍵.txt", "two");
  {
    const std::ifstream reader(fs::path("out") / u8"鍵.txt");
    EXPECT_TRUE(Refusal().starts_with("out/\xE9\x8D\xB5.txt: can't be written: ")) << Refusal();
  }
  EXPECT_EQ(ReadFile(fs::path("out") / u8"鍵.txt"), "one");
  {
    const platform::FileLock lock(fs::path("tree") / u8"鍵.txt");  // lets nobody in
    EXPECT_NE(Refusal().find("tree/\xE9\x8D\xB5.txt: can't be read: "), std::string::npos);
  }
  Add(u8"鍵.txt", "two");
  ASSERT_EQ(Refusal(), "");
  EXPECT_EQ(ReadFile(fs::path("out") / u8"鍵.txt"), "two");
  EXPECT_FALSE(fs::exists("out/.publishing"));
}

TEST_F(UnicodeNames, PathsOfSharesAndDevicesKeepTheirRoots) {
  EXPECT_EQ(TextOf(PathOf(R"(\\?\C:\a\b)")), "C:/a/b");
  EXPECT_EQ(TextOf(PathOf(R"(\\?\UNC\server\share)")), "//server/share");
  const std::string drive = TextOf(fs::current_path().root_name());
  EXPECT_EQ(PathOf(drive + "tree"), platform::AbsolutePath("tree"));
}

TEST_F(UnicodeNames, ReachTheToolAndReturnInUtf8) {
  options_.tree = fs::path(u8"木");
  Add(u8"日本.txt");
  EXPECT_TRUE(RunPublish("build \x96\xD8 \x8Fo").starts_with("0: 1 added, "));
  EXPECT_TRUE(fs::exists(fs::path(u8"出") / u8"日本.txt"));
  EXPECT_EQ(RunPublish("lint \x8Fo --tree \x96\xD8"), "0: 0 errors, 0 warnings\n");
  const std::string shown = RunPublish("diff \x8Fo \x8Fo/hashlist.dat --files --json");
  EXPECT_TRUE(shown.starts_with("0: {\n")) << shown;
  const std::string gone = RunPublish("lint \x8Fo/none 2>&1");
  EXPECT_TRUE(gone.starts_with("1: velmora-publish: \xE5\x87\xBA/none: can't be read: ")) << gone;
  EXPECT_TRUE(gone.ends_with("\n") && gone.find('\r') == gone.npos) << gone;
  EXPECT_TRUE(RunPublish("build \x96\xD8 \x8Fo --names bytes 2>&1").starts_with("2: "));
}

}  // namespace
}  // namespace velmora::publish
