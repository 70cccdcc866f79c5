#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "publish/diff/list_diff.h"

namespace velmora::publish {
namespace {

const std::string kHash(40, 'A');
const std::string kOther(40, 'B');
const std::string kMd5(32, 'A');

std::string File(const std::string& path, const std::string& hash = kHash, int size = 7) {
  const std::string number = std::to_string(size);
  return "FILE : " + path + ", " + hash + ", " + number + ", " + hash + ", " + number + "\n";
}

std::vector<std::string> Paths(const std::vector<DiffEntry>& entries) {
  std::vector<std::string> paths;
  for (const DiffEntry& entry : entries) paths.push_back(entry.path);
  return paths;
}

using Names = std::vector<std::string>;

TEST(ListDiff, TellsWhatPlayersGoThrough) {
  struct Case {
    std::string before;
    std::string after;
    Names downloads, checks, deletions, leftBehind;
  };
  const std::string compressed = "FILE : a.compressed, " + kOther + ", 3, " + kHash + ", 7\n";
  const std::vector<Case> cases = {
      {File("a"), File("a"), {}, {}, {}, {}},
      {File("a"), File("a", kOther), {"a"}, {}, {}, {}},
      {File("a"), File("a", kHash, 8), {"a"}, {}, {}, {}},
      {"", File("bb") + File("a"), {"a", "bb"}, {}, {}, {}},
      {File("a") + File("d\\b"), File("a"), {}, {}, {}, {"d\\b"}},
      {File("a") + File("d\\b"), File("a") + "DEL : d\n", {}, {}, {"d\\b"}, {}},
      {File("a") + File("d\\b.t"), File("a") + "DEL : *.t, R\n", {}, {}, {"d\\b.t"}, {}},
      // Deleted first, and downloaded again.
      {File("d\\b"), File("d\\b") + "DEL : D\n", {"d\\b"}, {}, {"d\\b"}, {}},
      // The same content under another record is read once.
      {File("a"), compressed, {}, {"a"}, {}, {}},
      {File("a"), File("A"), {}, {"A"}, {}, {}},
      {File("a"), File("a", kMd5), {}, {"a"}, {}, {}},
      {File("a"), File("a", kMd5, 8), {"a"}, {}, {}, {}},
      // What the cache can't hold is read at every start.
      {File("a b"), File("a b"), {}, {"a b"}, {}, {}},
      {File(std::string(180, 'x')),
       File(std::string(180, 'x')),
       {},
       {std::string(180, 'x')},
       {},
       {}},
  };
  for (const Case& one : cases) {
    const ListDiff diff = CompareLists(PublishedList(one.before), PublishedList(one.after));
    SCOPED_TRACE(one.before + "->\n" + one.after);
    EXPECT_EQ(Paths(diff.downloads), one.downloads);
    EXPECT_EQ(Paths(diff.checks), one.checks);
    EXPECT_EQ(Paths(diff.deletions), one.deletions);
    EXPECT_EQ(Paths(diff.leftBehind), one.leftBehind);
  }
}

// A cache can't be read beyond a line that is too long: what stands behind it is hashed as well.
TEST(ListDiff, CacheEndsAtALineThatIsTooLong) {
  const PublishedList list(File("a") + File("b" + std::string(180, 'x')) + File("c"));
  EXPECT_EQ(Paths(CompareLists(list, list).checks), (Names{"c", "b" + std::string(180, 'x')}));
}

TEST(ListDiff, FilesCannotBecomeFolders) {
  EXPECT_EQ(Paths(CompareLists(PublishedList(File("d") + File("e\\f")),
                               PublishedList(File("D\\x") + File("e")))
                      .inTheWay),
            (Names{"d", "e\\f"}));
  EXPECT_TRUE(CompareLists(PublishedList(File("d\\x")), PublishedList(File("d\\y") + File("da")))
                  .inTheWay.empty());
}

TEST(ListDiff, CountsBytesAndRequests) {
  const PublishedList before(File("a") + File("b"));
  const PublishedList after(File("a", kOther) + "FILE : c.compressed, " + kHash + ", 3, " + kOther +
                            ", 9\n" + File("b") + File("./VelmoraUpdate.dat", kHash, 100) +
                            File("VelmoraUpdate.exe", kHash, 1000));
  const ListDiff diff = CompareLists(before, after);
  EXPECT_EQ(Paths(diff.downloads), (Names{"VelmoraUpdate.exe", "./VelmoraUpdate.dat", "a", "c"}));
  EXPECT_EQ(diff.DownloadBytes(), 1000U + 100 + 7 + 3);
  EXPECT_EQ(diff.restarts, 2U);
  // Seven processes ask for enable.cdn, three of them for the list.
  EXPECT_EQ(diff.Requests(), 7U + 3 + 4);
  EXPECT_EQ(CompareLists(after, after).Requests(), 4U);
}

}  // namespace
}  // namespace velmora::publish
