#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "publish/diff/list_diff.h"
#include "support/publish_tool.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

std::string File(const std::string& path, const std::string& content = "content") {
  return test::FileLine(path, content);
}

ListDiff Compare(const std::string& before, const std::string& after) {
  return CompareLists(PublishedList(before), PublishedList(after));
}

// "get a, check b" and so on.
std::string Text(const ListDiff& diff) {
  std::string text;
  const auto add = [&text](const char* what, const std::vector<DiffEntry>& entries) {
    for (const DiffEntry& entry : entries) text += (text.empty() ? "" : ", ") + (what + entry.path);
  };
  add("get ", diff.downloads);
  add("check ", diff.checks);
  add("always ", diff.uncached);
  add("delete ", diff.deletions);
  add("leave ", diff.leftBehind);
  add("blocked by ", diff.inTheWay);
  return text + (diff.uncertain > 0 ? " by size" : "");
}

TEST(ListDiff, ListsDownloadsChecksAndDeletions) {
  const std::string md5 = test::Md5("content");
  const std::string uncached(180, 'x');  // too long for a line of the cache
  const std::string threeFiles = File("a") + File("b" + uncached) + File("c");
  const struct {
    std::string before, after, expected;
  } cases[] = {
      {File("a"), File("a"), ""},
      {File("a"), File("a", "changed"), "get a"},
      {File("a") + File("d\\b"), File("a"), "leave d\\b"},
      {File("a") + File("d\\b"), File("a") + "DEL : d\n", "delete d\\b"},
      {File("d\\b"), File("d\\b") + "DEL : D\n", "get d\\b, delete d\\b"},
      // The same content in another record is read once.
      {File("a"), test::CompressedLine("a", "content"), "check a"},
      {File("a"), File("A"), "check A"},
      {File("a"), "FILE : a, " + md5 + ", 7, " + md5 + ", 7\n", "check a by size"},
      // What the cache can't hold is read at every start, and so is all that follows a long line.
      {File("a b"), File("a b"), "always a b"},
      {"", File("a b"), "get a b, always a b"},
      {File("a b"), test::CompressedLine("a b", "content"), "always a b"},
      {File("a b"), "FILE : a b, " + md5 + ", 7, " + md5 + ", 7\n",
       "check a b, always a b by size"},
      {threeFiles, threeFiles, "always c, always b" + uncached},
      // The line isn't too long any more, or only now.
      {threeFiles, File("a") + File("c"), "check c, leave b" + uncached},
      {File("a") + File("c"), threeFiles, "get b" + uncached + ", always c, always b" + uncached},
      // Patchers can't turn a file into a folder, nor a folder into a file, unless it is removed:
      // not only its files.
      {File("d"), File("D\\x"), "get D\\x, leave d, blocked by d"},
      {File("d"), File("D\\x") + "DEL : D\\\n", "get D\\x, leave d, blocked by d"},
      {File("d"), File("D\\x") + "DEL : D, R\n", "get D\\x, delete d"},
      {File("e\\f"), File("e"), "get e, leave e\\f, blocked by e\\f"},
      {File("e\\f"), File("e") + "DEL : e\\f\n", "get e, delete e\\f, blocked by e\\f"},
      {File("e\\f"), File("e") + "DEL : E/\n", "get e, delete e\\f"},
      {File("e\\d\\f"), File("e\\d") + "DEL : e\n", "get e\\d, delete e\\d\\f"},
      {File("e\\f"), File("e") + "DEL : *.*, R\n", "get e, delete e\\f"},
  };
  for (const auto& [before, after, expected] : cases) {
    EXPECT_EQ(Text(Compare(before, after)), expected) << before << "->\n" << after;
  }
}

TEST(ListDiff, CountsBytesAndRequests) {
  const std::string after = File("a", "changed") +
                            test::FileLine("c.compressed", "abc", "content") + File("b") +
                            File("./VelmoraUpdate.dat", std::string(100, 'x')) +
                            File("VelmoraUpdate.exe", std::string(1000, 'x'));
  const ListDiff diff = Compare(File("a") + File("b"), after);
  EXPECT_EQ(Text(diff), "get VelmoraUpdate.exe, get ./VelmoraUpdate.dat, get a, get c");
  EXPECT_EQ(diff.DownloadBytes(), 1000U + 100 + 7 + 3);
  EXPECT_EQ(diff.restarts, 2U);
  // Seven processes ask for enable.cdn, three of them for the list.
  EXPECT_EQ(diff.Requests(), 7U + 3 + 4);
  EXPECT_EQ(Compare(after, after).Requests(), 4U);
}

TEST(DiffCommand, TellsWhatIsHashedAtEachStartAndRefusesWhatIsNoList) {
  const test::TemporaryFolder folder;
  test::WriteFile("list", File("a") + File("b c") + File("d e"));
  EXPECT_NE(test::RunPublish("diff list list").find("\nat each start: 2 files, 14 bytes"),
            std::string::npos);
  EXPECT_NE(test::RunPublish("diff list list --json").find("\"checkAtEachStart\": [\n    {"),
            std::string::npos);
  for (const std::string text : {"", "no list\n", "DEL : a\n"}) {
    test::WriteFile("other", text);
    for (const std::string lists : {"list other", "other list"}) {
      const std::string output = test::RunPublish("diff " + lists + " 2>&1");
      EXPECT_TRUE(output.starts_with("1: velmora-publish: other: not a list")) << output;
    }
  }
}

}  // namespace
}  // namespace velmora::publish
