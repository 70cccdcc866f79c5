#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine/record_set.h"
#include "engine/reference_list.h"
#include "publish/build/ignore_rules.h"
#include "publish/build/list_text.h"
#include "publish/build/publication.h"
#include "publish/build/source_tree.h"
#include "publish/build/zlib_blocks.h"
#include "publish/common/publish_error.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;
using test::ReadFile;
using test::WriteFile;

// What a patcher makes of the published list.
struct ReadList {
  explicit ReadList(const std::string& text) {
    ParseReferenceList(text, files, removals, clientExe,
                       [](std::string_view line) { ADD_FAILURE() << "refused: " << line; });
  }
  [[nodiscard]] std::vector<std::string> Paths() const {
    std::vector<std::string> paths;
    for (const FileRecord& record : files) paths.push_back(record.path);
    return paths;
  }
  FileRecordSet files;
  FileRecordSet removals;
  std::string clientExe;
};

std::string Expanded(const std::string& stream, std::size_t size) {
  std::string content(size, '\0');
  uLongf length = size;
  EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(content.data()), &length,
                       reinterpret_cast<const Bytef*>(stream.data()), stream.size()),
            Z_OK);
  content.resize(length);
  return content;
}

class Publication : public testing::Test {
 protected:
  static BuildOptions Options(Compress compress = Compress::kNever) {
    BuildOptions options;
    options.tree = "tree";
    options.output = "out";
    options.payload.compress = compress;
    return options;
  }
  static std::map<std::string, std::string> Output(const std::string& folder = "out") {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      if (entry.is_regular_file()) {
        files[entry.path().lexically_relative(folder).generic_string()] = ReadFile(entry.path());
      }
    }
    return files;
  }
  test::TemporaryFolder folder_;
};

TEST_F(Publication, PlainTree) {
  WriteFile("tree/b.dat", "bb");
  WriteFile("tree/sub dir/a.dat", "");
  WriteFile("tree/VelmoraUpdate.exe", "program");
  WriteFile("tree/VelmoraUpdate.dat", "settings");
  BuildOptions options = Options();
  options.clientExe = "\\bin\\Game.exe";
  options.removals = {{.path = "old.dat",
                       .transferHash = "",
                       .transferSize = "",
                       .contentHash = "",
                       .contentSize = ""}};
  const BuildSummary summary = BuildPublication(options);
  EXPECT_EQ(summary.files, 4U);
  EXPECT_EQ(summary.contentBytes, 17U);
  const auto first = Output();
  auto served = first;
  EXPECT_EQ(served.erase(".velmora-publish"), 1U);
  EXPECT_EQ(served,
            (std::map<std::string, std::string>{
                {"b.dat", "bb"},
                {"sub dir/a.dat", ""},
                {"VelmoraUpdate.exe", "program"},
                {"VelmoraUpdate.dat", "settings"},
                {"hashlist.dat",
                 "EXE : \\bin\\Game.exe\nDEL : old.dat\n"
                 "FILE : b.dat, " +
                     test::Sha1("bb") + ", 2, " + test::Sha1("bb") + ", 2\n" +
                     "FILE : sub dir\\a.dat, " + test::Sha1("") + ", 0, " + test::Sha1("") +
                     ", 0\n" + "FILE : ./VelmoraUpdate.dat, " + test::Sha1("settings") + ", 8, " +
                     test::Sha1("settings") + ", 8\n" + "FILE : VelmoraUpdate.exe, " +
                     test::Sha1("program") + ", 7, " + test::Sha1("program") + ", 7\n"}}));
  // Over itself, and by MD5.
  BuildPublication(options);
  EXPECT_EQ(Output(), first);
  options.payload.hash = HashKind::kMd5;
  BuildPublication(options);
  EXPECT_NE(ReadFile("out/hashlist.dat").find(test::Md5("program") + ", 7"), std::string::npos);
}

// Bytes that no compression makes smaller.
std::string Noise(std::size_t size) {
  std::string noise;
  noise.reserve(size);
  for (unsigned n = 1; noise.size() < size;)
    noise += static_cast<char>((n = n * 1664525 + 1013904223) >> 24);
  return noise;
}

// Bytes that become a good deal smaller, at the ends of blocks as well.
std::string Numbers(std::size_t size) {
  std::string text;
  text.reserve(size + 10);
  for (int i = 0; text.size() < size; ++i) text += std::to_string(i) + ' ';
  text.resize(size);
  return text;
}

TEST_F(Publication, CompressesWhatPays) {
  const std::string text = Numbers(1300000);
  const std::string half = Noise(50000) + std::string(50000, 'x');
  // Compressed data at the beginning is taken for compressed data throughout.
  const std::string late = Noise(4 * kBlockSize) + std::string(4 * kBlockSize, 'x');
  // With the mark behind them, this path would be longer than a list can say, and this name longer
  // than a disk takes.
  const std::string name(246, 'n');
  const std::string deep = std::string(125, 'd') + "/" + std::string(127, 'f');
  for (const std::string& path :
       {std::string("text"), std::string("sub.png/text"), std::string("a.PnG"),
        std::string("b.own"), std::string("png"), deep, name}) {
    WriteFile("tree/" + path, text);
  }
  WriteFile("tree/noise", Noise(100000));
  WriteFile("tree/half", half);
  WriteFile("tree/late", late);
  WriteFile("tree/empty", "");
  struct Case {
    Compress compress;
    unsigned paysFrom;
    std::set<std::string> plainTypes;
    std::set<std::string> compressed;
  };
  const std::vector<Case> cases = {
      {Compress::kNever, 5, {}, {}},
      {Compress::kPays, 5, CompressedTypes(), {"b.own", "half", "png", "sub.png/text", "text"}},
      {Compress::kPays, 51, {"own"}, {"a.PnG", "png", "sub.png/text", "text"}},
      {Compress::kPays, 99, {}, {}},
      {Compress::kPays, 0, {}, {"a.PnG", "b.own", "half", "png", "sub.png/text", "text"}},
      {Compress::kAlways,
       5,
       CompressedTypes(),
       {"a.PnG", "b.own", "half", "late", "noise", "png", "sub.png/text", "text"}},
  };
  const std::map<std::string, std::string> contents = {
      {"half", half}, {"late", late}, {"noise", Noise(100000)}};
  for (const Case& row : cases) {
    fs::remove_all("out");
    BuildOptions options = Options(row.compress);
    options.payload.paysFrom = row.paysFrom;
    options.payload.plainTypes = row.plainTypes;
    EXPECT_EQ(BuildPublication(options).compressed, row.compressed.size());
    const auto output = Output();
    EXPECT_EQ(output.size(), 13U);
    EXPECT_EQ(output.at(deep), text);
    EXPECT_EQ(output.at(name), text);
    for (const std::string& path : row.compressed) {
      const auto stream = output.find(path + ".compressed");
      ASSERT_NE(stream, output.end()) << path << row.paysFrom;
      const auto content = contents.contains(path) ? contents.at(path) : text;
      EXPECT_EQ(Expanded(stream->second, content.size()), content);
      std::string listed = path;
      std::replace(listed.begin(), listed.end(), '/', '\\');
      EXPECT_NE(output.at("hashlist.dat")
                    .find("FILE : " + listed + ".compressed, " + test::Sha1(stream->second) + ", " +
                          std::to_string(stream->second.size()) + ", " + test::Sha1(content) +
                          ", " + std::to_string(content.size()) + "\n"),
                std::string::npos);
    }
  }
}

// Patchers expand a stream in one call, and must find what every zlib makes of it.
TEST_F(Publication, StreamsOfManyBlocks) {
  std::map<std::string, std::string> contents;
  for (const std::size_t size :
       {std::size_t{1}, kBlockSize - 1, kBlockSize, kBlockSize + 1, 2 * kBlockSize,
        2 * kBlockSize + 1, 7 * kBlockSize, 9 * kBlockSize + 12345}) {
    contents.emplace("text" + std::to_string(size), Numbers(size));
    contents.emplace("noise" + std::to_string(size), Noise(size));
  }
  for (const auto& [name, content] : contents) WriteFile("tree/" + name, content);
  BuildPublication(Options(Compress::kAlways));
  for (const auto& [name, content] : contents) {
    const std::string stream = ReadFile("out/" + name + ".compressed");
    EXPECT_EQ(Expanded(stream, content.size()), content) << name;
    EXPECT_LT(stream.size(), content.size() + content.size() / 1000 + 30) << name;
  }
  // A block knows what stands in front of it: the second of these two equal ones costs nearly
  // nothing.
  const std::string period = Noise(30000);
  std::string repeated;
  while (repeated.size() < 2 * kBlockSize) repeated += period;
  fs::remove_all("tree");
  WriteFile("tree/repeated", repeated);
  BuildPublication(Options(Compress::kAlways));
  EXPECT_LT(fs::file_size("out/repeated.compressed"), 60000U);
}

// With the same settings, what hasn't changed stays as it is, down to its time stamp.
TEST_F(Publication, KeepsUnchangedPayloads) {
  const std::string text = Numbers(200000);
  const auto longAgo = fs::last_write_time(".") - fs::file_time_type::duration(3600000000000);
  const std::vector<std::string> payloads = {"same.compressed", "changed.compressed",
                                             "noise",           "damaged.compressed",
                                             "gone.compressed", "./VelmoraUpdate.dat"};
  const auto prepare = [&](BuildOptions options) {
    fs::remove_all("tree");
    fs::remove_all("out");
    for (const char* name : {"same", "changed", "damaged", "gone"})
      WriteFile(std::string("tree/") + name, text + name);
    WriteFile("tree/noise", Noise(1000));
    WriteFile("tree/VelmoraUpdate.dat", "settings");
    BuildPublication(options);
    WriteFile("tree/changed", text + "CHANGED");
    std::string damaged = ReadFile("out/damaged.compressed");
    damaged[1000] ^= 1;
    WriteFile("out/damaged.compressed", damaged);
    fs::remove("out/gone.compressed");
    for (const std::string& payload : payloads) {
      if (payload != "gone.compressed") fs::last_write_time("out/" + payload, longAgo);
    }
  };
  const auto kept = [&] {
    std::set<std::string> names;
    for (const std::string& payload : payloads) {
      if (fs::exists("out/" + payload) && fs::last_write_time("out/" + payload) == longAgo)
        names.insert(payload);
    }
    return names;
  };
  const auto sameAsFresh = [](const BuildOptions& options) {
    const auto output = Output();
    BuildOptions fresh = options;
    fresh.output = "fresh";
    BuildPublication(fresh);
    for (const auto& [name, content] : Output("fresh")) EXPECT_EQ(output.at(name), content) << name;
    fs::remove_all("fresh");
  };
  BuildOptions options = Options(Compress::kPays);
  prepare(options);
  BuildPublication(options);
  EXPECT_EQ(kept(), (std::set<std::string>{"same.compressed", "noise", "./VelmoraUpdate.dat"}));
  sameAsFresh(options);

  const std::vector<void (*)(BuildOptions&)> changes = {
      [](BuildOptions& o) { o.payload.hash = HashKind::kMd5; },
      [](BuildOptions& o) { o.payload.compress = Compress::kAlways; },
      [](BuildOptions& o) { o.payload.paysFrom = 6; },
      [](BuildOptions& o) { o.payload.plainTypes.insert("own"); },
      [](BuildOptions& o) { o.listName = "other.dat"; },
      // A list that wasn't made with the settings that lie beside it.
      [](BuildOptions&) { WriteFile("out/hashlist.dat", ReadFile("out/hashlist.dat") + "\n"); },
      [](BuildOptions&) { fs::remove("out/.velmora-publish"); },
  };
  for (const auto& change : changes) {
    prepare(options);
    BuildOptions changed = options;
    change(changed);
    BuildPublication(changed);
    const auto names = kept();
    // What became compressed has another name now; nothing else kept its stamp.
    EXPECT_TRUE(names.empty() || changed.payload.compress == Compress::kAlways) << *names.begin();
    sameAsFresh(changed);
  }
}

TEST_F(Publication, DoubleByteNamesAreServedAsTheyAreAskedFor) {
  WriteFile("tree/\x95\x5C.dat", "hyou");
  BuildPublication(Options());
  EXPECT_EQ(ReadFile("out/\x95/.dat"), "hyou");
  EXPECT_TRUE(ReadFile("out/hashlist.dat").starts_with("FILE : \x95\x5C.dat, "));
}

TEST_F(Publication, RefusesWhatAPatcherCannotTake) {
  const std::string deep = std::string(130, 'd') + "/" + std::string(129, 'f');
  std::string blanks;  // each is three bytes long in a request
  for (int i = 0; i < 60; ++i) blanks += "d e/";
  const auto refused = [](const std::string& name, const std::string& reason) {
    fs::remove_all("tree");
    WriteFile("tree/ok", "x");
    WriteFile("tree/" + name, "x");
    try {
      BuildPublication(Options(Compress::kPays));
      ADD_FAILURE() << name;
    } catch (const PublishError& error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
    EXPECT_FALSE(fs::exists("out")) << name;
  };
  // A part of the message, and the names that it is told of.
  const std::map<std::string, std::vector<std::string>> cases = {
      {"comma", {"a,b"}},
      {"blank", {" lead", "trail "}},
      {"control", {"a\nb"}},
      {"backslash", {"a\\b"}},
      {".compressed", {"a.compressed.dat"}},
      {"question mark", {"a?b"}},
      {"percent", {"a%41"}},
      {"half a character", {"\xE3\x81\x82/f", "\x95/x"}},
      {"ends in the byte 5C", {"\x95\x5C"}},
      {"259 bytes", {deep}},
      {"escaping", {blanks + "f"}},
      {"of its own",
       {"Session.log", "VelmoraUpdate.cvc", "_VelmoraUpdate.exe", "_VelmoraUpdate.CVC",
        "_VelmoraUpdate.dirs", "data/_VelmoraUpdate.new"}},
      {"spelling", {"velmoraupdate.exe", "VelmoraUpdate.DAT"}},
      {"is taken",
       {"enable.cdn", "hashlist.dat", "hashlist.dat/f", ".publishing/0", ".velmora-publish"}},
      {"a device", {"sub/Aux", "lpt9 .tar.gz/f", "nul.txt"}},
      {"ends in a dot", {"dot./f", "blank /f"}},
      {"one of <", {"a:b", "a|b"}},
      {"both", {"OK"}}};
  for (const auto& [reason, names] : cases) {
    for (const std::string& name : names) refused(name, reason);
  }
  fs::remove_all("tree");
  WriteFile("tree/good", "x");
  fs::create_symlink("good", "tree/link");
  EXPECT_THROW(BuildPublication(Options()), PublishError);
  // What looks like one of these and isn't: the second byte of a character, longer and other names.
  for (const char* name :
       {"\x83\x7C.dat", "com0", "com10", "console", "a.con", ".hidden", "./VelmoraUpdate.dat"})
    EXPECT_EQ(ReasonAgainst(name, 0), "") << name;
  EXPECT_TRUE(ReasonAgainst("f", 0x7FFFFFFF).empty());
  EXPECT_FALSE(ReasonAgainst("f", 0x80000000).empty());
  EXPECT_TRUE(ReasonAgainst(std::string(128, 'd') + "\\" + std::string(129, 'f'), 0).empty());
  EXPECT_FALSE(ReasonAgainst(std::string(129, 'd') + "\\" + std::string(129, 'f'), 0).empty());
}

TEST_F(Publication, CollisionsOnPlayersDisks) {
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  EXPECT_EQ(
      Collisions({"D\\x", "d\\X", "e", "E\\f\\g", "./VelmoraUpdate.dat", "velmoraupdate.DAT"}),
      (Pairs{{"D\\x", "d\\X"}, {"./VelmoraUpdate.dat", "velmoraupdate.DAT"}, {"e", "E\\f\\g"}}));
  // The second byte of a character has no capitals; a directory in two spellings is one.
  EXPECT_EQ(Collisions({"\x83\x41", "\x83\x61", "D\\x", "d\\y", "ab", "a\\b"}), Pairs{});
}

TEST_F(Publication, RemovesWhatIsGone) {
  const std::string earlier =
      "DEL : gone\\before.dat\nDEL : *.tmp, R\nDEL : data\\*, R\nDEL : Back.dat\nDEL : data\n"
      "FILE : data\\Case.DAT, H, 1, H, 1\nFILE : data\\old.dat.compressed, H, 1, H, 1\n"
      "FILE : \x83\x41.dat, H, 1, H, 1\nFILE : z.dat, H, 1, H, 1\nFILE : A.dat, H, 1, H, 1\n"
      "FILE : ./VelmoraUpdate.dat, H, 1, H, 1\nFILE : VelmoraUpdate.exe, H, 1, H, 1\n";
  WriteFile("tree/DATA/case.dat", "x");
  WriteFile("tree/back.dat", "x");
  WriteFile("tree/\x83\x61.dat", "x");  // another character, not another case
  WriteFile("tree/was/file/now", "x");
  WriteFile("tree/is", "x");
  WriteFile("old.dat", earlier);
  BuildOptions options = Options();
  options.removeFrom = "old.dat";
  options.removals.resize(3);
  options.removals[0].path = "m";
  options.removals[1].path = "Z.dat";
  options.removals[2].path = "*.TMP";
  options.removals[2].transferHash = "R";
  BuildPublication(options);
  const std::string list = ReadFile("out/hashlist.dat");
  const std::string expected =
      "DEL : m\nDEL : Z.dat\nDEL : *.TMP, R\n"
      "DEL : A.dat\nDEL : data\\old.dat\nDEL : gone\\before.dat\nDEL : \x83\x41.dat\n";
  EXPECT_EQ(list.substr(0, list.find("FILE")), expected);
  // The next time from the publication itself: what went stays gone.
  options.removeFrom = "out";
  options.removals.clear();
  fs::remove("tree/back.dat");
  BuildPublication(options);
  const std::string next = ReadFile("out/hashlist.dat");
  EXPECT_EQ(next.substr(0, next.find("FILE")),
            "DEL : *.TMP, R\nDEL : A.dat\nDEL : Z.dat\nDEL : back.dat\nDEL : data\\old.dat\n"
            "DEL : gone\\before.dat\nDEL : m\nDEL : \x83\x41.dat\n");

  const auto before = Output();
  for (const char* line : {"DEL : ..\\x", "DEL : a\\.. \\..\\x", "DEL : \\x", "DEL : /x",
                           "DEL : C:x", "DEL : .\\", "FILE : ..\\x, H, 1, H, 1", "no list",
                           "FILE : was\\file, H, 1, H, 1", "FILE : IS\\in, H, 1, H, 1",
                           "FILE : a, H, 1, H, 1\n\n\nDEL : x, RRRRRRRRRRRRRRRRRRRRR"
                           "RRRRRRRRRRRRRRRRRRRRRR"}) {
    WriteFile("old.dat", std::string(line) + "\n");
    options.removeFrom = "old.dat";
    EXPECT_THROW(BuildPublication(options), PublishError) << line;
  }
  options.removeFrom = "none.dat";
  EXPECT_THROW(BuildPublication(options), PublishError);
  EXPECT_EQ(Output(), before);
}

// Players would download such a file at each start.
TEST_F(Publication, RefusesToRemoveWhatItInstalls) {
  WriteFile("tree/Data/sub/a.dat", "x");
  WriteFile("tree/VelmoraUpdate.dat", "x");
  struct Case {
    const char* path;
    const char* mode;
    bool isRefused;
  };
  for (const auto& [path, mode, isRefused] :
       {Case{"data\\SUB\\A.dat", "", true}, Case{"data/sub/a.dat", "", true},
        Case{"VelmoraUpdate.exe", "", true}, Case{"*.exe", "R", true}, Case{"*.tmp", "", true},
        Case{"Data", "", true}, Case{".\\data\\.\\sub. \\", "", true}, Case{".", "", true},
        Case{"..\\out", "", true}, Case{"velmoraupdate.dat", "", true}, Case{"*.*", "R", true},
        Case{"DATA\\*", "R", true}, Case{"x; *.dat", "R", true}, Case{"*a?dat", "R", true},
        Case{"Dat", "", false}, Case{"Data\\sub\\a.dat\\x", "", false}, Case{"a.dat", "", false},
        Case{"a.dat", "R", false}, Case{"*.da", "R", false}}) {
    BuildOptions options = Options();
    options.removals.resize(1);
    options.removals[0].path = path;
    options.removals[0].transferHash = mode;
    if (isRefused) {
      EXPECT_THROW(BuildPublication(options), PublishError) << path;
      EXPECT_FALSE(fs::exists("out")) << path;
    } else {
      BuildPublication(options);
      fs::remove_all("out");
    }
  }
}

TEST_F(Publication, LeavesOutWhatIsIgnored) {
  WriteFile("tree/a.dat", "x");
  WriteFile("tree/.git/config,v", "x");  // a name that would be refused
  WriteFile("tree/logs/keep.log", "x");
  WriteFile("tree/sub/x.log", "x");
  WriteFile("tree/sub/keep.log", "x");
  fs::create_symlink("a.dat", "tree/link");
  WriteFile("tree/.publishignore", ".git/\n*.log\n!keep.log\n/logs\nlink\n");
  BuildPublication(Options());
  const auto paths = [] { return ReadList(ReadFile("out/hashlist.dat")).Paths(); };
  EXPECT_EQ(paths(), (std::vector<std::string>{"a.dat", "sub\\keep.log"}));
  BuildOptions options = Options();
  options.ignoreFile = "tree/sub/x.log";
  WriteFile("tree/sub/x.log", "link\n.git\n[kl]*.log");
  BuildPublication(options);
  EXPECT_EQ(paths(), (std::vector<std::string>{"a.dat"}));
  options.ignoreFile = "none";
  EXPECT_THROW(BuildPublication(options), PublishError);
}

TEST(IgnoreRules, MatchAsGitDoes) {
  using Paths = std::vector<std::string>;  // a directory if a slash ends it
  struct Case {
    const char* rules;
    Paths ignored;
    Paths others;
  };
  const auto ignores = [](const char* rules, std::string path) {
    const bool isDirectory = path.ends_with('/');
    if (isDirectory) path.pop_back();
    return IgnoreRules(rules).Ignores(path, isDirectory);
  };
  for (const auto& [rules, ignored, others] :
       {Case{"", {".publishignore"}, {}},
        Case{"a", {"a", "d/a"}, {"ab"}},
        Case{"A", {}, {"a"}},
        Case{"/a", {}, {"d/a"}},
        Case{"d/a", {"d/a"}, {"x/d/a"}},
        Case{"a/", {"d/a/"}, {"a"}},
        Case{"# a\n\n  \n", {}, {"# a"}},
        Case{"\\#a", {"#a"}, {}},
        Case{"\\!a", {"!a"}, {}},
        Case{"a  ", {"a"}, {}},
        Case{"a\\ ", {"a "}, {"a"}},
        Case{"a\r\nb", {"a"}, {}},
        Case{"*\n!a", {}, {"a"}},
        Case{"!a\n*", {"a"}, {}},
        Case{"*.b", {"d/x.b"}, {}},
        Case{"d/*", {}, {"d/e/f"}},
        Case{"a?c", {"abc"}, {}},
        Case{"d?e", {}, {"d/e"}},
        Case{"[a-c]x", {"bx"}, {}},
        Case{"[!a-c]x", {}, {"bx"}},
        Case{"[]-]", {"]"}, {}},
        Case{"[[:digit:]]", {"7"}, {}},
        Case{"[\\]]", {"]"}, {}},
        Case{"d[/]e", {}, {"d/e"}},
        Case{"[ab", {}, {"a"}},
        Case{"**/x", {"x", "a/b/x"}, {"a/bx"}},
        Case{"d/**", {"d/e/f"}, {"d/"}},
        Case{"d/**/x", {"d/x", "d/a/b/x"}, {}},
        Case{"d/a**x", {}, {"d/ab/x"}},
        Case{"x**", {"xyz"}, {}},
        Case{"a\\", {}, {"a\\"}},
        Case{"*a*a*a*a*a*a*a*a*b", {}, {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"}},
        Case{"/", {}, {"a", "d/"}}}) {
    for (const auto& path : ignored) EXPECT_TRUE(ignores(rules, path)) << rules << " : " << path;
    for (const auto& path : others) EXPECT_FALSE(ignores(rules, path)) << rules << " : " << path;
  }
}

TEST_F(Publication, RefusesOptionsBeforeAnyWork) {
  WriteFile("tree/a", "x");
  const auto refused = [](BuildOptions options) {
    EXPECT_THROW(BuildPublication(options), PublishError);
    EXPECT_EQ(Output().size(), 0U);
  };
  fs::create_directory("out");
  BuildOptions options = Options();
  for (const char* name : {"", "..", "a/b", "a", "b.compressed", ".velmora-publish", "enable.cdn",
                           "my list", "a#1", "a?"}) {
    options.listName = name;
    refused(options);
  }
  options = Options();
  options.clientExe = "Game, or not.exe";
  refused(options);
  options = Options();
  options.removals.emplace_back().path = "two\nlines";
  refused(options);
  for (const auto& [tree, output] :
       {std::pair("tree", "tree/out"), std::pair("tree/", "tree"), std::pair("tree", ".")}) {
    options = Options();
    options.tree = tree;
    options.output = output;
    EXPECT_THROW(BuildPublication(options), PublishError) << output;
    EXPECT_FALSE(fs::exists("tree/hashlist.dat"));
  }
}

TEST_F(Publication, ListAppearsWhenAllIsThere) {
  for (int i = 100; i < 400; ++i) WriteFile("tree/" + std::to_string(i), "x");
  std::size_t missing = 0;
  std::jthread player([&missing](const std::stop_token& end) {
    while (!fs::exists("out/hashlist.dat") && !end.stop_requested()) {
    }
    for (int i = 100; i < 400; ++i) missing += fs::exists("out/" + std::to_string(i)) ? 0 : 1;
  });
  BuildPublication(Options());
  player.join();
  EXPECT_EQ(missing, 0U);
}

// Whatever goes wrong, players of the old publication find all that its list names.
TEST_F(Publication, FailureLeavesTheOldPublication) {
  WriteFile("tree/a", "old");
  WriteFile("tree/m", "old");
  WriteFile("tree/z", "old");
  BuildPublication(Options());
  const auto before = Output();
  WriteFile("tree/a", "new");
  WriteFile("tree/z", "new");
  const auto fails = [&](const BuildOptions& options) {
    EXPECT_THROW(BuildPublication(options), PublishError);
    EXPECT_EQ(Output(), before);
    EXPECT_FALSE(fs::exists("out/.publishing"));
  };
  // A payload can't have its place.
  WriteFile("tree/n", "new");
  fs::create_directories("out/n/in the way");
  fails(Options());
  fs::remove_all("out/n");
  // The list can't.
  BuildOptions options = Options();
  options.listName = "new.dat";
  fs::create_directory("out/new.dat");
  fails(options);
  // The publisher stops it.
  const std::atomic<bool> stop = true;
  options = Options(Compress::kPays);
  options.payload.stop = &stop;
  fails(options);
  // Another build is at work, whose files stay.
  WriteFile("out/.publishing/0", "another's");
  EXPECT_THROW(BuildPublication(Options()), PublishError);
  EXPECT_EQ(ReadFile("out/.publishing/0"), "another's");
  fs::remove_all("out/.publishing");
  EXPECT_EQ(Output(), before);
}

TEST_F(Publication, FileThatChangesIsRefused) {
  WriteFile("tree/a", "content");
  const SourceFile longer{"tree/a", "a", 8};
  const SourceFile shorter{"tree/a", "a", 6};
  const SourceFile none{"tree/a", "a", 0};
  const SourceFile gone{"tree/b", "b", 1};
  const SourceFile cutShort{"tree/large", "large", 9 * kBlockSize};
  WriteFile("tree/large", Numbers(8 * kBlockSize + 1));
  for (const SourceFile& file : {longer, shorter, none, gone, cutShort}) {
    for (const Compress compress : {Compress::kNever, Compress::kAlways}) {
      PayloadOptions options;
      options.compress = compress;
      EXPECT_THROW(static_cast<void>(WritePayloads({{&file, "payload"}}, options)), PublishError);
      EXPECT_FALSE(fs::exists("payload"));
    }
  }
  // In the midst of others that wait for room in memory.
  const SourceFile whole{"tree/large", "large", 8 * kBlockSize + 1};
  PayloadOptions options;
  options.compress = Compress::kAlways;
  EXPECT_THROW(static_cast<void>(WritePayloads(
                   {{&whole, "1"}, {&cutShort, "2"}, {&whole, "3"}, {&longer, "4"}}, options)),
               PublishError);
  EXPECT_FALSE(fs::exists("2"));
  EXPECT_FALSE(fs::exists("4"));
}

TEST_F(Publication, ListIsReadBackAsAPatcherWould) {
  const auto record = [](const std::string& path) {
    return FileRecord{.path = path,
                      .transferHash = "H",
                      .transferSize = "1",
                      .contentHash = "H",
                      .contentSize = "1"};
  };
  // Two lines of one path, a field that ends early, a name over its limit.
  EXPECT_THROW(static_cast<void>(ListText({record("a"), record("a")}, {}, "")), PublishError);
  EXPECT_THROW(static_cast<void>(ListText({record("a,b")}, {}, "")), PublishError);
  EXPECT_THROW(static_cast<void>(ListText({}, {}, std::string(260, 'x'))), PublishError);
  EXPECT_THROW(static_cast<void>(ListText({}, {record(std::string(600, 'x'))}, "")), PublishError);

  // However many records the patcher has, they come first, and its program before all.
  std::vector<FileRecord> records;
  for (const char* path : {"VelmoraUpdate.exe", "zzzzzzzzzzzzzzzzzzzzzzzzz", "./VelmoraUpdate.dat",
                           "b", "cc", "lang\\VelmoraUpdate.ja", "aaaaaaaaaaa"}) {
    records.push_back(record(path));
  }
  FileRecord removal;
  removal.path = "old";
  const ReadList list(ListText(records, {removal}, "Game.exe"));
  EXPECT_EQ(list.Paths(), (std::vector<std::string>{"VelmoraUpdate.exe", "lang\\VelmoraUpdate.ja",
                                                    "./VelmoraUpdate.dat", "b", "cc", "aaaaaaaaaaa",
                                                    "zzzzzzzzzzzzzzzzzzzzzzzzz"}));
  EXPECT_EQ((*list.removals.begin()).path, "old");
  EXPECT_EQ(list.clientExe, "Game.exe");
}

}  // namespace
}  // namespace velmora::publish
