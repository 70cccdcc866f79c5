#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/lint/acceptance.h"
#include "publish/lint/lint.h"
#include "support/workspace.h"

namespace velmora::publish {

void PrintTo(Rule rule, std::ostream* out) { *out << static_cast<int>(rule); }

namespace {

using enum Rule;

const std::string kHash(40, 'A');

std::string File(const std::string& path, const std::string& hash = kHash,
                 const std::string& size = "7") {
  return "FILE : " + path + ", " + hash + ", " + size + ", " + hash + ", " + size + "\n";
}

// Each finding's line and rule, in any order.
using Found = std::multiset<std::pair<std::size_t, Rule>>;

Found Lint(const std::string& text, const LintOptions& options) {
  Found found;
  for (const LintFinding& finding : LintList(text, options)) {
    found.emplace(finding.line, finding.rule->id);
  }
  return found;
}

TEST(Lint, EveryRuleFindsItsLineAndNothingElse) {
  const std::string at = ", " + kHash + ", ";
  const std::string a = "FILE : a" + at;
  const std::string other = "7, " + std::string(40, 'B') + ", ";
  const LintOptions options{.dataPath = "/" + std::string(90, 'd')};
  const struct {
    Found expected;
    std::vector<std::string> lists;  // with just these findings
  } cases[] = {
      {{},
       {a + "7" + at + "7\r\n", File("a", std::string(32, 'F')), File("a", kHash, "2147483647"),
        a + "7, " + std::string(32, 'C') + ", 7\n", "FILE : a.compressed" + at + other + "7\n",
        File("com10"),
        File("\x83\x7C"),             // its second byte is no "|"
        File(std::string(167, 'p')),  // 255 bytes in the cache, 259 in a request
        "DEL : *.old, R\nDEL : da\n" + File("d\\x.new"),
        // What takes only a file, or only a folder, doesn't meet the other.
        "DEL : d, R\nDEL : d\\x\\\n" + File("d\\x"), "DEL : d\\\nDEL : d\nDEL : D, R\n" + File("a"),
        "EXE : \\bin\\A.exe\n" + File("bin\\a.exe"),
        File("a") + File("./VelmoraUpdate.dat") + File("VelmoraUpdate.exe")}},
      {{{2, kLineTooLong}}, {File("a") + "FILE : " + std::string(600, 'x') + "\n" + File("c")}},
      {{{2, kNulByte}, {2, kMissingField}}, {File("a") + std::string("FILE\0", 5) + File("b")}},
      {{{0, kNoFiles}, {1, kFieldTooLong}}, {a + std::string(32, '7') + "\n"}},
      {{{1, kMisspelledKeyword}},
       {"file : b\n" + File("a"), "FILE: b\n" + File("a"), "\xEF\xBB\xBF" + File("a") + File("b")}},
      {{{2, kMeaninglessLine}}, {File("a") + "; a remark\n\n \t\n"}},
      {{{1, kCarriageReturn}, {1, kMissingField}}, {"FILE : a\rb\n"}},
      {{{1, kMissingField}}, {a + "7" + at + "\n", "FILE\n"}},
      {{{1, kUnreadText}}, {a + "7" + at + "7, 8\n", a + "7" + at + "7 and more\n"}},
      {{{2, kUnreadText}, {3, kUnreadText}},
       {File("a") + "DEL : b, R, more\nEXE : C.exe, more\nDEL : c,\n"}},
      {{{1, kTrailingSpace}, {1, kSpaceInPath}, {1, kLeavesInstallation}}, {File("a ")}},
      {{{2, kNothingNamed}, {3, kNothingNamed}}, {File("a") + "DEL :\nEXE : \n"}},
      {{{1, kNotADigest}, {1, kNotADigest}},
       {File("a", std::string(40, 'a')), File("a", std::string(39, 'A'))}},
      {{{1, kNotASize}, {1, kNotASize}},
       {File("a", kHash, "2147483648"), File("a", kHash, "12147483647"), File("a", kHash, "-1")}},
      {{{1, kLeadingZeros}}, {a + "07" + at + "7\n"}},
      {{}, {a + "7" + at + "007\n"}},
      {{{1, kContentDiffers}}, {a + other + "7\n", a + "7" + at + "8\n"}},
      {{{1, kCompressedIsLarger}}, {"FILE : a.compressed" + at + "8" + other.substr(1) + "7\n"}},
      {{{0, kNoFiles}, {1, kPathTooLong}},
       {File(std::string(260, 'p')), "EXE : " + std::string(505, 'x') + "\n"}},
      {{{1, kCacheLineTooLong}, {1, kRequestTooLong}}, {File(std::string(168, 'p'))}},
      {{{1, kSpaceInPath}}, {File("a b")}},
      {{{0, kNoFiles}, {1, kTooManyCommas}}, {File("a,b")}},
      {{{1, kControlCharacter}}, {File("a\tb")}},
      {{{1, kBackslashInCharacter}}, {File("\x95\x5C.dat")}},
      {{{1, kLeavesInstallation}},
       {File("..\\a"), File("d\\..\\a"), File("C:\\a"), File("a:b"), File("\\a"), File("d.\\a"),
        File("d\\Nul.txt"), File("com1"), "DEL : ..\\x\n" + File("a")}},
      {{{1, kNotInCodePage}}, {File("\xE3\x81\x82")}},
      {{{1, kForbiddenCharacter}}, {File("a|b")}},
      {{{1, kPercentOrNumberSign}}, {File("a%41"), File("a#1")}},
      {{{1, kMarkWithinPath}}, {"FILE : a.compressed.dat" + at + other + "9\n"}},
      {{{1, kSlashInPath}}, {File("d/a")}},
      {{{1, kNotPlainPath}}, {File(".\\a"), File("d\\\\a")}},
      {{{2, kSameLine}}, {File("a") + File("a")}},
      {{{2, kSamePath}}, {File("a") + File("a", std::string(40, 'B'))}},
      {{{2, kSamePatcherPath}}, {File("VelmoraUpdate.exe") + File("VelmoraUpdate.exe")}},
      {{{2, kSameFile}}, {File("d\\a") + File("D\\A"), File("d\\\x82\x60") + File("d\\\x82\x81")}},
      {{{1, kFileIsFolder}}, {File("d\\a") + File("D")}},
      {{{1, kListedAndRemoved}},
       {"DEL : d\n" + File("D\\a"), "DEL : d\\\n" + File("D\\a"), "DEL : d, R\n" + File("D"),
        "DEL : *.old, R\n" + File("d\\x.OLD")}},
      {{{2, kSameRemoval}},
       {"DEL : d\nDEL : .\\D\n" + File("a"), "DEL : d\\\nDEL : D/\n" + File("a")}},
      {{{2, kSeveralClients}}, {"EXE : A.exe\nEXE : B.exe\n" + File("a")}},
      {{{1, kClientNotListed}}, {"EXE : \\bin\\A.exe\n" + File("a")}},
      {{{0, kNoFiles}}, {""}},
      {{{1, kRemovesEverything}}, {"DEL : *.*, R\n" + File("a"), "DEL : .\\\n" + File("a")}},
      {{{1, kRemovesPatcher}, {1, kRemovesPatcher}, {1, kRemovesPatcherFiles}},
       {"DEL : velmoraupdate.*, R\n" + File("a")}},
      {{{1, kRemovesPatcherFiles}}, {"DEL : session.log\n" + File("a")}},
      {{{1, kWildcardWithoutMode}, {2, kUnknownMode}, {2, kWildcardWithoutMode}},
       {"DEL : *.tmp\nDEL : x?, r\n" + File("a")}},
      {{{1, kRemovalTooLong}}, {"DEL : " + std::string(256, 'd') + "\n" + File("a")}},
      {{{1, kMarkInRemoval}}, {"DEL : x.compressed\n" + File("a")}},
      {{{2, kRemovalInOtherMode}}, {"DEL : x\nDEL : x, R\n" + File("a")}},
      {{{1, kPatternWithoutMatch}},
       {"DEL : d/*.old, R\n" + File("a"), "DEL : *.old;d/x, R\n" + File("a"),
        "DEL : .\\*.old, R\n" + File("a"), "DEL : \\*.old;x, R\n" + File("a"),
        "DEL : d\\\\*.old, R\n" + File("a"), "DEL : d\\..\\*.old, R\n" + File("a"),
        "DEL : d*\\, R\n" + File("a"), "DEL : C:\\*.old, R\n" + File("a")}},
      {{{1, kSettingsWithoutRestart}}, {File("velmoraupdate.dat")}},
      {{{1, kProgramWithoutRestart}}, {File("Velmoraupdate.exe")}},
      {{{1, kPatcherNotFirst}}, {File("VelmoraUpdate.exe") + File("a")}},
      {{{1, kPatcherNameInPath}}, {File("doc\\VelmoraUpdate.txt")}},
      {{{1, kPatcherFile}}, {File("Session.log")}},
      {{{1, kRedirection}}, {File("Enable.cdn")}},
  };
  EXPECT_FALSE(NeverMatches("d..\\.x*;*\\?.old; y;*.*"));
  std::set<Rule> seen = {kRemovesUnlisted};  // needs a tree
  for (const auto& [expected, lists] : cases) {
    bool isReadWhole = true;
    for (const auto& [line, rule] : expected) {
      seen.insert(rule);
      isReadWhole = isReadWhole && rule != kLineTooLong && rule != kNulByte;
    }
    for (const std::string& text : lists) {
      EXPECT_EQ(Lint(text, options), expected) << text;
      EXPECT_EQ(PublishedList(text).isReadWhole, isReadWhole) << text;
    }
  }
  for (const LintRule& rule : LintRules()) {
    EXPECT_TRUE(IsAboutStart(rule.id) || seen.contains(rule.id)) << rule.Number();
  }
}

TEST(Lint, TreeIsComparedWithTheList) {
  const test::TemporaryFolder folder;
  for (const std::string name : {"a", "d/x.tmp", "d/Y.TMP", "e/listed.tmp", "e/f/g", "h/gone",
                                 "gone.tmp", "\xE3\x82\xBD.tmp"}) {
    test::WriteFile(PathOf("tree/" + name), name);
  }
  test::WriteFile(platform::PathOfListText("tree/\x83\x5C\x61.tmp"), "");
  // Files that a removal names are no surprise, whatever else takes them.
  const std::string text =
      "DEL : *.tmp, R\nDEL : e\\f\nDEL : gone\nDEL : h\\Gone\nDEL : h\n"
      "DEL : gone.tmp\n" +
      File("e\\Listed.tmp");
  std::set<std::string> found;
  for (const LintFinding& finding : LintList(text, {.dataPath = "/game", .tree = "tree"})) {
    found.insert(std::to_string(finding.rule->Number()) + " " + finding.subject + ": " +
                 finding.detail);
  }
  EXPECT_EQ(found,
            (std::set<std::string>{"406 *.tmp: e\\Listed.tmp, see line 7", "501 *.tmp: d\\x.tmp",
                                   "501 *.tmp: d\\Y.TMP", "501 *.tmp: \x83\x5C.tmp",
                                   "501 *.tmp: \x83\x5C\x61.tmp", "501 e\\f: e\\f\\g"}));
}

TEST(Acceptance, EntriesAcceptTheirFindingsAndOthersAreStale) {
  const auto finding = [](Rule rule, const std::string& subject, const std::string& detail = {}) {
    return LintFinding{&LintRuleOf(rule), 1, subject, detail};
  };
  const std::vector<LintFinding> findings = {
      finding(kSpaceInPath, "Data\\read me.txt"),                          // 0
      finding(kSpaceInPath, "a #b\\c d"),                                  // 1
      finding(kSlashInPath, "d/x"),                                        // 2
      finding(kListedAndRemoved, "*.tmp", "e\\\x83\x5C.tmp, see line 4"),  // 3
      finding(kRemovesUnlisted, "*.tmp", "e\\f"),                          // 4
      finding(kNoFiles, "")};                                              // 5
  const struct {
    std::string text;
    std::set<std::size_t> accepted;  // numbers of the findings
    std::set<std::size_t> stale;     // lines
  } cases[] = {
      {"", {}, {}},
      {"\xEF\xBB\xBF# RULE PATH # reason\r\n\r\n 303 # all\r\n", {0, 1}, {}},
      {"303 data/READ me.txt # r\n303 a ?b\\c d # r # 2\n303 a #b\\c d # r", {0, 1}, {3}},
      {"303 a#b# # r\n303 data*txt # r\n303 Data # r\n303 d # r", {0}, {1, 3, 4}},
      {"313 d\\x # r\n313 d/* # r\n313 x # r", {2}, {3}},
      {"406 \xE3\x82\xBD.tmp # another\n406 e/\xE3\x82\xBD.tmp # UTF-8", {3}, {1}},
      {"406 e\\\x83\x5C.tmp # bytes\n406 e\\* # r\n303 e\\f # r", {3}, {3}},
      {"501 *.tmp # also as the pattern that it is\n501 e\\f # r\n410 # r", {4, 5}, {}},
      {"410 a # not about a path", {}, {1}},
  };
  for (const auto& [text, accepted, stale] : cases) {
    Acceptance acceptance(text, "file");
    std::set<std::size_t> found;
    for (std::size_t i = 0; i < findings.size(); ++i) {
      if (acceptance.Accepts(findings[i])) found.insert(i);
    }
    EXPECT_EQ(found, accepted) << text;
    std::set<std::size_t> lines;
    for (const StaleEntry& entry : acceptance.Stale([](Rule) { return true; })) {
      lines.insert(entry.line);
    }
    EXPECT_EQ(lines, stale) << text;
  }

  Acceptance acceptance("501 x # only with a tree\n", "file");
  EXPECT_TRUE(
      acceptance.Stale([](Rule rule) { return ScopeOf(rule) != RuleScope::kListAndTree; }).empty());
  acceptance.Add(kSpaceInPath);
  auto left = findings;
  EXPECT_EQ(acceptance.RemoveFrom(left), 2U);
  EXPECT_EQ(left.size(), findings.size() - 2);
}

TEST(Acceptance, LinesThatAreNoEntriesAreErrors) {
  for (const auto& [line, error] :
       std::vector<std::pair<std::string, std::string>>{{"303 a", "no reason"},
                                                        {"303", "no reason"},
                                                        {"303 a # ", "no reason"},
                                                        {"303 a#r", "no reason"},
                                                        {"999 # r", "999 is no rule"},
                                                        {"a 303 # r", "a is no rule"},
                                                        {"0303 # r", "0303 is no rule"},
                                                        {"303, # r", "303, is no rule"}}) {
    try {
      const Acceptance acceptance("\n" + line + "\n", "dir/file");
      ADD_FAILURE() << line;
    } catch (const PublishError& thrown) {
      EXPECT_TRUE(std::string(thrown.what()).starts_with("dir/file:2: " + error)) << thrown.what();
    }
  }
}

TEST(Acceptance, FileIsInTheTreeOrNextToIt) {
  const test::TemporaryFolder folder;
  test::WriteFile("a/b/tree/x", "");
  EXPECT_EQ(AcceptedFile("a/b/tree"), std::nullopt);
  test::WriteFile("a/.publishlint", "");  // neither here nor there
  EXPECT_EQ(AcceptedFile("a/b/tree"), std::nullopt);
  test::WriteFile("a/b/.publishlint", "");
  for (const char* tree : {"a/b/tree", "a/b/tree/", "a/b/c/../tree"}) {
    EXPECT_EQ(AcceptedFile(tree), folder.path() / "a/b/.publishlint") << tree;
  }
  test::WriteFile("a/b/tree/.publishlint", "");
  EXPECT_EQ(AcceptedFile("a/b/tree"), "a/b/tree/.publishlint");
}

TEST(ListPath, PathsOfOneFileFoldToOne) {
  // The second byte of a double-byte character is neither a separator nor a letter.
  EXPECT_EQ(FoldedPath("./A\\b//C. .\\.\\..\\\x95\x5C\x41\x83\x41"),
            "a\\b\\c\\..\\\x95\x5C\x61\x83\x41");
  EXPECT_EQ(FoldersAbove("d\\e\\\x95\x5C\x61"), (std::vector<std::string_view>{"d", "d\\e"}));
}

}  // namespace
}  // namespace velmora::publish
