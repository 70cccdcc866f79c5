#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "publish/build/publication.h"
#include "publish/common/publish_error.h"
#include "publish/diff/list_diff.h"
#include "support/publish_tool.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

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

// Everything here, with the times of its last change.
std::map<fs::path, fs::file_time_type> Snapshot() {
  std::map<fs::path, fs::file_time_type> all;
  for (const auto& entry : fs::recursive_directory_iterator(".")) {
    all[entry.path()] = entry.last_write_time();
  }
  return all;
}

TEST(Preview, SaysWhatABuildWouldPublishAndWritesNothing) {
  const test::TemporaryFolder folder;
  const std::string text(3000, 'x');
  BuildOptions options;
  options.tree = "tree";
  options.output = "out";
  options.maxRemovedPercent = 100;
  for (const char* path : {"tree/same", "tree/changed", "tree/gone", "tree/kind"}) {
    test::WriteFile(path, path + text);
  }
  test::WriteFile("tree/empty", "");
  const std::function<void()> steps[] = {
      [] {},
      [&] {
        test::WriteFile("tree/changed", "changed");
        fs::remove("tree/gone");
        fs::remove("tree/kind");
        test::WriteFile("tree/new/file", text);
        test::WriteFile("tree/kind/file", text);
        options.reuse = options.removeFrom = "out";
        options.output = "second";
      },
      [&] {
        options.output = "out";
        options.payload.hash = HashKind::kMd5;
        fs::remove("out/kind.compressed");
      },
      [&] { fs::remove("out/same.compressed"); },
  };
  const auto figures = [](const BuildSummary& s) {
    return std::tuple(s.files, s.compressed, s.contentBytes, s.transferBytes, s.reused,
                      s.changes.added, s.changes.changed, s.changes.removed);
  };
  for (const auto& step : steps) {
    step();
    const auto before = Snapshot();
    const Preview preview = PreviewPublication(options);
    EXPECT_EQ(Snapshot(), before);
    EXPECT_EQ(figures(BuildPublication(options)), figures(preview.summary));
    EXPECT_EQ(test::ReadFile(options.output / "hashlist.dat"), preview.list);
  }
  const auto fails = [&options](const std::string& reason) {
    try {
      static_cast<void>(PreviewPublication(options));
      ADD_FAILURE() << reason;
    } catch (const PublishError& error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
  };
  const std::atomic<bool> stop = true;
  options.payload.stop = &stop;
  fails("stopped");
  options.payload.stop = nullptr;
  test::WriteFile("out/.publishing/journal", "end 0\n");
  fails("velmora-publish recover out");
  options.output = "tree/../out/hashlist.dat";
  fails("no folder");
}

TEST(DiffCommand, TakesATreeAsItWouldBePublished) {
  const test::TemporaryFolder folder;
  for (const char* path : {"tree/same", "tree/changed", "tree/gone", "tree/kind"}) {
    test::WriteFile(path, "content of " + std::string(path));
  }
  const std::string settings = " --compress always --hash md5 --max-removed 100";
  ASSERT_TRUE(test::RunPublish("build tree old" + settings).starts_with("0: "));
  test::WriteFile("tree/changed", "changed");
  for (const char* path : {"tree/gone", "tree/kind"}) fs::remove(path);
  for (const char* path : {"tree/kind/file", "tree/.git/x", "tree/.publishignore"}) {
    test::WriteFile(path, ".git");
  }
  fs::remove("old/same.compressed");  // the list is enough
  const auto before = Snapshot();
  const std::string expected = test::RunPublish("diff old tree --json");
  EXPECT_TRUE(expected.starts_with("0: ")) << expected;
  EXPECT_NE(test::RunPublish("diff old/hashlist.dat tree")
                .find("3 files, 31 bytes, as build --remove-from old/hashlist.dat would"),
            std::string::npos);
  EXPECT_EQ(Snapshot(), before);
  ASSERT_TRUE(test::RunPublish("build tree new --remove-from old" + settings).starts_with("0: "));
  EXPECT_EQ(test::RunPublish("diff old new --json"), expected);
  EXPECT_NE(test::RunPublish("build tree old --remove-from old --dry-run --json" + settings)
                .find("\"blocked\": []"),
            std::string::npos);
  EXPECT_TRUE(test::RunPublish("build tree old --dry-run --quiet" + settings) == "1: ")
      << "players who have the file can't update";
  // Without settings: the list's digest, and what is unchanged isn't made again.
  fs::rename("old/hashlist.dat", "list");
  EXPECT_NE(test::RunPublish("diff list tree")
                .find("\nto download:  2 files, 11 bytes\n"
                      "to delete:    2 files\nto check:     0 "),
            std::string::npos);
  EXPECT_NE(test::RunPublish("diff list new --list other 2>&1").find("without a list other"),
            std::string::npos);
}

}  // namespace
}  // namespace velmora::publish
