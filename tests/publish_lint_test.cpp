#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "publish/build/publication.h"
#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"
#include "publish/lint/lint.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

using test::ReadFile;
using test::WriteFile;

const std::string kHash(40, 'A');
const std::string kOther(40, 'B');

std::string File(const std::string& path, const std::string& hash = kHash) {
  return "FILE : " + path + ", " + hash + ", 7, " + hash + ", 7\n";
}

// "line:rule" of each finding.
std::vector<std::string> Found(const std::string& text, const LintOptions& options = {}) {
  std::vector<std::string> found;
  for (const LintFinding& finding : LintList(text, options)) {
    found.push_back(std::to_string(finding.line) + ":" + std::to_string(finding.rule->number));
  }
  return found;
}

using Expected = std::vector<std::string>;

struct Case {
  std::string text;
  Expected expected;
};

std::vector<Case> Cases() {
  const std::string at = ", " + kHash + ", ";
  const std::string rest = at + "7" + at + "7\n";
  const std::string deep = std::string(150, 'd');
  std::string blanks;  // each is three bytes long in a request
  for (int i = 0; i < 25; ++i) blanks += "d e f g h\\";
  return {
      // Lines.
      {File("a") + "FILE : " + std::string(600, 'x') + "\n" + File("c"), {"2:101"}},
      {"EXE : " + std::string(505, 'x') + "\n", {"0:410", "1:301"}},
      {File("a") + std::string("FILE\0", 5) + File("b"), {"2:102", "2:107"}},
      {"FILE : a" + at + std::string(32, '7') + rest.substr(3 + 40), {"0:410", "1:103"}},
      {File("a") + "file : b" + rest, {"2:104"}},
      {File("a") + "FILE: b" + rest, {"2:104"}},
      {File("a") + "; a remark\n\n \t\n", {"2:105"}},
      {"FILE : a" + at + "7" + at + "7\r\n", {}},
      {"FILE : a\rb" + rest, {"1:106", "1:107"}},
      {"FILE : a" + at + "7" + at + "\n", {"1:107"}},
      {"FILE\n", {"1:107"}},
      {"FILE : ..\\a" + at + "7" + at + "\nDEL : ..\\a\n", {"1:107", "1:308", "2:308", "2:406"}},
      {"FILE : a" + at + "7" + at + "7, 8\n", {"1:108"}},
      {"\xEF\xBB\xBF"
       "FILE : a" +
           rest + File("b"),
       {"1:104"}},
      {"FILE : a" + at + "7" + at + "7 and more\n", {"1:108"}},
      {File("a") + "DEL : b, R, more\nEXE : C.exe, more\nDEL : c,\n", {"2:108", "3:108"}},
      {"FILE : a " + at + "7 " + at + "7\n", {"1:109", "1:109", "1:303", "1:308", "1:202"}},
      {File("a") + "DEL :\nEXE : \n", {"2:110", "3:110"}},
      // Hashes and sizes.
      {File("a", std::string(40, 'a')), {"1:201", "1:201"}},
      {File("a", std::string(39, 'A')), {"1:201", "1:201"}},
      {File("a", std::string(32, 'F')), {}},
      {"FILE : a" + at + "2147483647" + at + "2147483647\n", {}},
      {"FILE : a" + at + "2147483648" + at + "2147483648\n", {"1:202", "1:202"}},
      {"FILE : a" + at + "12147483647" + at + "12147483647\n", {"1:202", "1:202"}},
      {"FILE : a" + at + "-1" + at + "-1\n", {"1:202", "1:202"}},
      {"FILE : a" + at + "07" + at + "7\n", {"1:203"}},
      {"FILE : a" + at + "7, " + kOther + ", 7\n", {"1:204"}},
      {"FILE : a" + at + "7" + at + "8\n", {"1:204"}},
      {"FILE : a" + at + "7, " + std::string(32, 'C') + ", 7\n", {}},
      {"FILE : a.compressed" + at + "8, " + kOther + ", 7\n", {"1:205"}},
      // Paths.
      {File(std::string(260, 'p')), {"0:410", "1:301"}},
      {File(std::string(167, 'p')), {}},  // 255 bytes in the cache
      {File(std::string(168, 'p')), {"1:302"}},
      {File("a b"), {"1:303"}},
      {File("a,b"), {"0:410", "1:304"}},
      {File("a\tb"), {"1:305"}},
      {File(blanks + "x"), {"1:302", "1:306", "1:303"}},
      {File("\x95\x5C.dat"), {"1:307"}},
      {File("..\\a"), {"1:308"}},
      {File("d\\..\\a"), {"1:308"}},
      {File("C:\\a"), {"1:308"}},
      {File("a:b"), {"1:308"}},
      {File("\\a"), {"1:308"}},
      {File("d.\\a"), {"1:308"}},
      {File("d\\Nul.txt"), {"1:308"}},
      {File("com1"), {"1:308"}},
      {File("com10"), {}},
      {File("\xE3\x81\x82"), {"1:309"}},
      {File("\x83\x7C"), {}},  // no "|"
      {File("a|b"), {"1:310"}},
      {File("a%41"), {"1:311"}},
      {File("a#1"), {"1:311"}},
      {"FILE : a.compressed.dat" + at + "7, " + kOther + ", 9\n", {"1:312"}},
      {File("d/a"), {"1:313"}},
      {File(".\\a"), {"1:314"}},
      {File("d\\\\a"), {"1:314"}},
      // Records beside each other.
      {File("a") + File("a"), {"2:401"}},
      {File("a") + File("a", kOther), {"2:402"}},
      {File("VelmoraUpdate.exe") + File("VelmoraUpdate.exe"), {"2:403"}},
      {File("d\\a") + File("D\\A"), {"2:404"}},
      {File("d\\\x82\x60") + File("d\\\x82\x81"), {"2:404"}},
      {File("d\\a") + File("D"), {"1:405"}},
      {"DEL : d\n" + File("D\\a"), {"1:406"}},
      {"DEL : *.old, R\n" + File("d\\x.OLD"), {"1:406"}},
      {"DEL : *.old, R\nDEL : da\n" + File("d\\x.new"), {}},
      {"DEL : d\nDEL : D\\\n" + File("a"), {"2:407"}},
      {"EXE : A.exe\nEXE : B.exe\n" + File("a"), {"2:408"}},
      {"EXE : \\bin\\A.exe\n" + File("a"), {"1:409"}},
      {"EXE : \\bin\\A.exe\n" + File("bin\\a.exe"), {}},
      {"", {"0:410"}},
      // Removals.
      {"DEL : *.*, R\n" + File("a"), {"1:502"}},
      {"DEL : .\\\n" + File("a"), {"1:502"}},
      {"DEL : velmoraupdate.*, R\n" + File("a"), {"1:503", "1:503", "1:504"}},
      {"DEL : session.log\n" + File("a"), {"1:504"}},
      {"DEL : *.tmp\nDEL : x?, r\n" + File("a"), {"1:505", "2:506", "2:505"}},
      {"DEL : " + deep + "\\" + deep.substr(0, 106) + "\n" + File("a"), {"1:507"}},
      {"DEL : x.compressed\n" + File("a"), {"1:508"}},
      {"DEL : x\nDEL : x, R\n" + File("a"), {"2:509"}},
      {"DEL : ..\\x\n" + File("a"), {"1:308"}},
      // The patcher's own.
      {File("a") + File("./VelmoraUpdate.dat") + File("VelmoraUpdate.exe"), {}},
      {File("a") + File(".\\VelmoraUpdate.dat"), {"2:314", "2:601"}},
      {File("velmoraupdate.dat"), {"1:601"}},
      {File("Velmoraupdate.exe"), {"1:602"}},
      {File("VelmoraUpdate.exe") + File("a"), {"1:603"}},
      {File("doc\\VelmoraUpdate.txt"), {"1:604"}},
      {File("Session.log"), {"1:605"}},
      {File("Enable.cdn"), {"1:606"}},
  };
}

std::multiset<std::string> AnyOrder(const Expected& findings) {
  return {findings.begin(), findings.end()};
}

TEST(Lint, EveryRuleFindsItsLineAndNothingElse) {
  std::set<int> seen;
  for (const auto& [text, expected] : Cases()) {
    EXPECT_EQ(AnyOrder(Found(text)), AnyOrder(expected)) << text;
    for (const LintFinding& finding : LintList(text, {})) seen.insert(finding.rule->number);
  }
  seen.insert(501);  // needs a tree
  for (const LintRule& rule : LintRules()) EXPECT_TRUE(seen.contains(rule.number)) << rule.number;
  EXPECT_EQ(seen.size(), LintRules().size());
}

// The Data value takes from the room of a request.
TEST(Lint, RequestsAreMeasuredWithTheirDataPath) {
  const std::string text = File(std::string(160, 'p'));
  EXPECT_EQ(Found(text, {.dataPath = "/" + std::string(97, 'd'), .tree = {}}), Expected());
  EXPECT_EQ(Found(text, {.dataPath = "/" + std::string(98, 'd'), .tree = {}}), Expected{"1:306"});
}

TEST(Lint, TreeTellsWhatRemovalsTake) {
  const test::TemporaryFolder folder;
  for (const char* name :
       {"a", "d/x.tmp", "d/Y.TMP", "e/listed.tmp", "e/f/g", "VelmoraUpdate.exe"}) {
    WriteFile(std::string("tree/") + name, "x");
  }
  const std::string text = "DEL : *.tmp, R\nDEL : e\\f\nDEL : gone\n" + File("e\\Listed.tmp");
  const LintOptions options{.dataPath = "", .tree = "tree"};
  EXPECT_EQ(Found(text, options), (Expected{"1:406", "1:501", "1:501", "2:501"}));
  std::set<std::string> named;
  for (const LintFinding& finding : LintList(text, options)) {
    if (finding.rule->number == 501) named.insert(finding.detail);
  }
  EXPECT_EQ(named, (std::set<std::string>{"d\\x.tmp", "d\\Y.TMP", "e\\f\\g"}));
  EXPECT_THROW(LintList(text, {.dataPath = "", .tree = "none"}), PublishError);
}

// What the tool builds, its own linter has nothing against.
TEST(Lint, BuiltPublicationIsClean) {
  const test::TemporaryFolder folder;
  for (const char* name :
       {"data/a.pak", "VelmoraUpdate.exe", "VelmoraUpdate.dat", "z", "bin/G.exe"}) {
    WriteFile(std::string("tree/") + name, name);
  }
  BuildOptions build;
  build.tree = "tree";
  build.output = "out";
  build.clientExe = "\\bin\\G.exe";
  build.removals.emplace_back().path = "old";
  BuildPublication(build);
  EXPECT_EQ(Found(ReadFile("out/hashlist.dat"), {.dataPath = "/game", .tree = "tree"}), Expected());
}

TEST(ListPath, PlayersPathsAreOneFileToPlayers) {
  EXPECT_EQ(PlayersPath("./A\\b//C. .\\.\\d"), "a\\b\\c\\d");
  EXPECT_EQ(PlayersPath("\x95\x5C"
                        "A"),
            "\x95\x5C"
            "a");                                  // no separator
  EXPECT_EQ(PlayersPath("\x83\x41"), "\x83\x41");  // no letter
  EXPECT_EQ(PlayersPath("d\\..\\A"), "d\\..\\a");
  EXPECT_EQ(FoldersAbove("d\\e\\\x95\x5C"
                         "a"),
            (std::vector<std::string_view>{"d", "d\\e"}));
}

}  // namespace
}  // namespace velmora::publish
