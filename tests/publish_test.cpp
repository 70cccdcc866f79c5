#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "publish/build/ignore_rules.h"
#include "publish/build/list_text.h"
#include "publish/build/publication.h"
#include "publish/build/staging.h"
#include "publish/build/tree_names.h"
#include "publish/build/zlib_blocks.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/diff/list_diff.h"
#include "publish/lint/lint.h"
#include "publish/verify/verification.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;
using test::ReadFile;
using test::WriteFile;
using Texts = std::vector<std::string>;
using Names = std::set<std::string>;

constexpr std::size_t kMiB = std::size_t{1} << 20;

// The FILE line of the same arguments as test::FileLine's.
std::string Line(const auto&... arguments) {
  const std::string line = test::FileLine(arguments...);
  return line.substr(0, line.find('\r')) + "\n";
}

Texts PathsOf(const std::string& list) {
  Texts paths;
  for (const FileRecord& record : PublishedList(list).files) paths.push_back(record.path);
  return paths;
}

std::string Utf8(const char8_t* text) { return reinterpret_cast<const char*>(text); }

// As "a; b, R; ".
std::string RemovalsOf(const std::string& list) {
  std::string text;
  const std::string lines = list.substr(0, list.find("FILE"));
  for (std::size_t i = 0; i < lines.size(); i = lines.find('\n', i) + 1) {
    text += lines.substr(i + 6, lines.find('\n', i) - i - 6) + "; ";
  }
  return text;
}

FileRecord Removal(const std::string& path, const std::string& mode = "") {
  return {path, mode, "", "", "", false};
}

std::string Expanded(const std::string& stream, std::size_t size) {
  std::string content(size, '\0');
  uLongf length = size;
  EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(content.data()), &length,
                       reinterpret_cast<const Bytef*>(stream.data()), stream.size()),
            Z_OK);
  content.resize(length);
  return content;
}

// Bytes that no compression makes smaller.
std::string Noise(std::size_t size) {
  std::string noise;
  for (unsigned n = 1; noise.size() < size;)
    noise += static_cast<char>((n = n * 1664525 + 1013904223) >> 24);
  return noise;
}

// Bytes that compress well, also across the ends of blocks.
std::string Numbers(std::size_t size) {
  std::string text;
  for (int i = 0; text.size() < size; ++i) text += std::to_string(i) + ' ';
  text.resize(size);
  return text;
}

// What becomes of renames, from the one after `left` more on.
struct Renames {
  int left = -1;  // no limit
  bool fail = false;
  bool kill = false;
  bool forever = false;
};
Renames renames;

class Publication : public testing::Test {
 protected:
  Publication() {
    options_.tree = "tree";
    options_.output = "out";
    options_.payload.compress = Compress::kNever;
    options_.maxRemovedPercent = 100;
    // The patcher's files and the client are like all others here.
    options_.accepted = {Rule::kPatcherNotAProgram, Rule::kNoServer, Rule::kOtherListName,
                         Rule::kNoSuchClient};
  }
  // Why nothing is published; empty if something is.
  static std::string Refusal(const BuildOptions& options) try {
    BuildPublication(options);
    return {};
  } catch (const PublishError& error) {
    return error.what();
  }
  static std::map<std::string, std::string> Output(const std::string& folder = "out") {
    std::map<std::string, std::string> files;
    for (const auto& [path, content] : test::FilesHere()) {
      if (path.starts_with(folder + "/")) files[path.substr(folder.size() + 1)] = content;
    }
    return files;
  }
  static void WriteTree(const Names& paths, const std::string& content = "x") {
    for (const std::string& path : paths) WriteFile("tree/" + path, content);
  }
  test::TemporaryFolder folder_;
  BuildOptions options_;
};

TEST_F(Publication, PlainTree) {
  const std::string patcher = "#!/bin/sh\n";
  const std::string settings = "[Setting]\nServerAddress=h\nData=/game\n";
  WriteTree({"b.dat", "sub dir/a.dat"});
  WriteTree({"VelmoraUpdate.exe"}, patcher);
  WriteTree({"VelmoraUpdate.dat"}, settings);
  WriteFile("tree/\x95\x5C.dat", "double byte");  // patchers request a slash for the byte 5C
  options_.accepted.clear();
  options_.dataPath = "/game";
  options_.clientExe = "\\b.dat";
  options_.removals = {Removal("old.dat")};
  EXPECT_EQ(BuildPublication(options_).files, 5U);
  const std::string list = "EXE : \\b.dat\nDEL : old.dat\n" + Line("b.dat", "x") +
                           Line("sub dir\\a.dat", "x") + Line("\x95\x5C.dat", "double byte") +
                           Line("./VelmoraUpdate.dat", settings) +
                           Line("VelmoraUpdate.exe", patcher);
  EXPECT_EQ(ReadFile("out/hashlist.dat"), list);
  // The linter finds the space and the byte 5C.
  EXPECT_EQ(LintList(list, {.dataPath = "/game", .tree = "tree"}).size(), 2U);
  EXPECT_EQ(ReadFile("out/\x95/.dat"), "double byte");
  options_.payload.hash = HashKind::kMd5;
  BuildPublication(options_);
  EXPECT_NE(ReadFile("out/hashlist.dat").find(test::Md5("x") + ", 1"), std::string::npos);
}

TEST_F(Publication, CompressesWhatPays) {
  const std::string text = Numbers(1300000);
  // With the mark, this path would be too long for the list, and this name too long for a disk.
  const std::string deep = std::string(125, 'd') + "/" + std::string(127, 'f');
  const std::string name(246, 'n');
  std::map<std::string, std::string> tree = {
      {"noise", Noise(100000)},
      {"half", Noise(50000) + std::string(50000, 'x')},
      // What doesn't compress at its beginning isn't tried to its end.
      {"late", Noise(4 * kMiB) + std::string(8 * kMiB, 'x')},
      {"early", std::string(8 * kMiB, 'x') + Noise(5 * kMiB)},
      {"empty", ""}};
  for (const auto& path : {"text", "sub.png/text", "a.PnG", "b.own"}) tree[path] = text;
  for (const auto& path : {deep, name}) tree[path] = text;
  tree["png"] = Numbers(kMiB + 1);
  for (const auto& [path, content] : tree) WriteFile("tree/" + path, content);
  const Names types = CompressedTypes();
  const Names all = {"a.PnG", "b.own", "early",        "half", "late",
                     "noise", "png",   "sub.png/text", "text"};
  for (const auto& [compress, paysFrom, plainTypes, compressed] :
       std::vector<std::tuple<Compress, unsigned, Names, Names>>{
           {Compress::kNever, 5, {}, {}},
           {Compress::kPays, 5, types, {"b.own", "early", "half", "png", "sub.png/text", "text"}},
           {Compress::kPays, 51, {"own"}, {"a.PnG", "early", "png", "sub.png/text", "text"}},
           {Compress::kAlways, 5, types, all}}) {
    fs::remove_all("out");
    options_.payload = {.compress = compress, .paysFrom = paysFrom, .plainTypes = plainTypes};
    EXPECT_EQ(BuildPublication(options_).compressed, compressed.size());
    const std::string list = ReadFile("out/hashlist.dat");
    EXPECT_EQ(Output().size(), tree.size() + 2);
    for (const auto& [path, content] : tree) {
      const bool isCompressed = compressed.contains(path);
      const std::string payload = ReadFile("out/" + path + (isCompressed ? ".compressed" : ""));
      EXPECT_EQ(isCompressed ? Expanded(payload, content.size()) : payload, content) << path;
      std::string listed = path;
      std::replace(listed.begin(), listed.end(), '/', '\\');
      if (isCompressed) listed += ".compressed";
      EXPECT_NE(list.find(Line(listed, payload, content)), std::string::npos) << path;
    }
  }
}

// Where one block ends and the next begins, in the middle of a byte mostly, nothing shows. The
// largest file that is one block, and a file of blocks with any effort.
TEST_F(Publication, StreamsOfManyBlocks) {
  const std::string noise = Noise(300000);
  std::string mixed;
  while (mixed.size() < 9 * kMiB + 1) mixed += Numbers(mixed.size() / 3 + 70001) + noise;
  mixed.resize(9 * kMiB + 1);
  WriteFile("tree/one", mixed.substr(0, 8 * kMiB));
  WriteFile("tree/many", mixed);
  options_.payload.compress = Compress::kAlways;
  std::size_t earlier = mixed.size();
  for (const int effort : {1, 6, 12}) {
    options_.payload.effort = effort;
    BuildPublication(options_);
    for (const std::string name : {"one", "many"}) {
      const std::string stream = ReadFile("out/" + name + ".compressed");
      EXPECT_EQ(Expanded(stream, mixed.size()), ReadFile("tree/" + name)) << effort;
    }
    const std::size_t size = fs::file_size("out/many.compressed");
    EXPECT_LT(size, earlier) << effort;
    earlier = size;
  }
}

// With the same settings, what hasn't changed stays as it is, with its time stamp.
TEST_F(Publication, KeepsUnchangedPayloads) {
  const std::string text = Numbers(200000);
  const auto longAgo = fs::last_write_time(".") - fs::file_time_type::duration(3600000000000);
  using Change = void (*)(BuildOptions&);
  for (const auto& [change, kept] : std::vector<std::pair<Change, Names>>{
           {[](BuildOptions&) {}, {"same.compressed", "noise", "VelmoraUpdate.dat"}},
           {[](BuildOptions& o) { o.payload.hash = HashKind::kMd5; }, {}},
           // Old payloads stay; these two now have other names.
           {[](BuildOptions& o) { o.payload.compress = Compress::kAlways; },
            {"noise", "VelmoraUpdate.dat"}},
           {[](BuildOptions& o) { o.payload.paysFrom = 6; }, {}},
           {[](BuildOptions& o) { o.payload.effort = 11; }, {}},
           {[](BuildOptions& o) {
              fs::remove("out/hashlist.dat");
              o.listName = "other.dat";
            },
            {}},
           // The settings next to it belong to another list.
           {[](BuildOptions&) { WriteFile("out/hashlist.dat", "FILE"); }, {}},
           {[](BuildOptions&) { fs::remove("out/.velmora-publish"); }, {}}}) {
    for (const char* folder : {"tree", "out", "fresh"}) fs::remove_all(folder);
    WriteTree({"same", "changed", "damaged", "gone"}, text);
    WriteTree({"noise"}, Noise(1000));
    WriteTree({"VelmoraUpdate.dat"});
    BuildOptions options = options_;
    options.payload.compress = Compress::kPays;
    BuildPublication(options);
    WriteFile("tree/changed", text + "CHANGED");
    WriteFile("out/damaged.compressed", std::string(fs::file_size("out/damaged.compressed"), 'x'));
    fs::remove("out/gone.compressed");
    for (const auto& entry : fs::directory_iterator("out")) {
      fs::last_write_time(entry.path(), longAgo);
    }
    change(options);
    BuildPublication(options);
    Names unchanged;
    for (const auto& entry : fs::directory_iterator("out")) {
      if (entry.last_write_time() == longAgo) unchanged.insert(entry.path().filename());
    }
    EXPECT_EQ(unchanged, kept);
    const auto output = Output();
    options.output = "fresh";
    BuildPublication(options);
    // The record names old payloads as well.
    for (const auto& [name, content] : Output("fresh")) {
      EXPECT_TRUE(name == ".velmora-publish" || output.at(name) == content) << name;
    }
  }
}

TEST_F(Publication, AllComplaintsAreToldAtOnce) {
  // Also of folders, and of what is in them; but not of folders in which nothing is published.
  WriteTree({"\tx",
             " y",
             "\x95/x",
             ".publishing/0",
             ".publishignore",
             "Data/f",
             "Data/g/h",
             "Data/g/H",
             "\x95\x5C",
             "a,b/x%y",
             "a,b/x_y",
             "a_b",
             "c/a\\b",
             "c/con.txt",
             "c/d.compressed. ",
             "data",
             "enable.cdn",
             "e/.../f",
             "f\n",
             "list",
             "log/x,y",
             "session.log",
             "velmoraupdate.dat",
             "VelmoraUpdate.exe/in"});
  WriteFile("tree/.publishignore", "log/x,y\n");
  WriteFile("tree/large", "");
  fs::resize_file("tree/large", 0x80000000);
  WriteFile("tree/" + std::string(200, 'd') + "/" + std::string(200, 'd'), "");
  fs::create_directory("tree/empty,");
  fs::create_symlink("nowhere", "tree/link");
  fs::create_symlink("a_b", "tree/z");
  options_.listName = "list";
  options_.removals = {Removal("..\\x"), Removal("a_b"), Removal("*.cdn", "R")};
  // The beginning of each line, and its end before the way out that most have in common.
  const std::string longName(200, 'd');
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"*.cdn: the removal would delete", "file out with --ignore"},
      {"..\\x: a removal leads out", "name a path relative to it"},
      {"a_b: the removal would delete", "file out with --ignore"},
      {"tree/ y: begins with white space", "to \"y\""},
      {"tree/.publishing/0: \".publishing\" is taken", "rename it"},
      {"tree/?: ends in half a character", "to \"_\""},
      {"tree/?x: holds a control character and begins with white space", "to \"_x\""},
      {"tree/Data/g/h: differs only in case from tree/Data/g/H,", "rename one of the two"},
      {"tree/VelmoraUpdate.exe/in: is a file that patchers write", "leave it out with --ignore"},
      {"tree/a,b: holds a comma", "to \"_a_b\""},
      {"tree/a,b/x%y: holds a percent or number sign", "to \"_x_y\""},
      {"tree/c/a\\b: holds a backslash", "to \"a_b\""},
      {"tree/c/con.txt: is a device's name", "to \"_con.txt\""},
      {"tree/c/d.compressed. : holds \".compressed\"", "to \"d_compressed\""},
      {"tree/data: differs only in case from the folder tree/Data", "rename one of the two"},
      {"tree/" + longName + "/" + longName + ": its path has 401 bytes", "shorten it"},
      {"tree/e/...: ends in a dot", "to \"_\""},
      {"tree/enable.cdn: is a redirection", "files; leave it out with --ignore"},
      {"tree/f?: holds a line feed", "to \"f_\""},
      {"tree/large: has 2147483648 bytes", "split it"},
      {"tree/link: is a link that leads nowhere", "remove it"},
      {"tree/list: \"list\" is taken", "choose another --list"},
      {"tree/session.log: is a file that patchers write", "themselves; leave it out with --ignore"},
      {"tree/velmoraupdate.dat: settings file", "rename it to \"VelmoraUpdate.dat\""},
      {"tree/z: is a link", "replace it by what it leads to, as cp -L copies it"},
      {"tree/\xE8\xA1\xA8: ends in the byte 5C", "to \"\xE8\xA1\xA8_\""}};
  std::istringstream refusal(Refusal(options_));
  std::string line;
  std::getline(refusal, line);
  for (const auto& [start, end] : expected) {
    std::getline(refusal, line);
    const std::string common = ", or leave it out with --ignore";
    EXPECT_TRUE(line.starts_with("  " + start)) << line;
    EXPECT_TRUE(line.ends_with(end) || line.ends_with(end + common)) << line;
  }
  EXPECT_FALSE(std::getline(refusal, line)) << line;
  EXPECT_FALSE(fs::exists("out"));
}

TEST(TreeNames, ProposedNamesPass) {
  const Texts parts = {"a",   ".",    " ",           ",",        "\\", "\n",
                       "con", "\x95", ".compressed", "\x95\x5C", "%"};
  for (std::size_t i = 0; i < parts.size() * parts.size() * parts.size(); ++i) {
    const std::string name = parts[i % 11] + parts[i / 11 % 11] + parts[i / 121];
    EXPECT_EQ(WhyNotPublishable(PublishableName(name), {true, true}), "") << name;
  }
}

TEST_F(Publication, TheFirstComplaintsAreShown) {
  for (int i = 10; i < 61; ++i) WriteTree({"#" + std::to_string(i)});
  const std::string refusal = Refusal(options_);
  EXPECT_NE(refusal.find("for 51 reasons"), std::string::npos) << refusal;
  EXPECT_NE(refusal.find("#59"), std::string::npos) << refusal;
  EXPECT_TRUE(refusal.ends_with("\n  and 1 more")) << refusal;
}

TEST_F(Publication, NamesInUtf8AreListedInTheCodePage) {
  options_.names = NameEncoding::kUtf8;
  options_.clientExe = Utf8(u8"\\猫.exe");
  options_.removals = {Removal(Utf8(u8"古い")), Removal(Utf8(u8"ソ*.tmp"), "R")};
  WriteTree({Utf8(u8"絵/ソ～ｱ.dat"), Utf8(u8"\uE000ⅰ"), Utf8(u8"ソ"), "plain"});
  WriteFile("tree/.publishignore", Utf8(u8"/ソ\n"));
  BuildPublication(options_);
  const std::string list =
      "EXE : \\\x94\x4C.exe\nDEL : \x8C\xC3\x82\xA2\nDEL : \x83\x5C*.tmp, R\n" +
      Line("plain", "x") + Line("\x8A\x47\\\x83\x5C\x81\x60\xB1.dat", "x") +
      Line("\xF0\x40\xFA\x40", "x");
  EXPECT_EQ(ReadFile("out/hashlist.dat"), list);
  // Where patchers request them, as from a tree that has these names.
  EXPECT_EQ(ReadFile("out/\x8A\x47/\x83/\x81\x60\xB1.dat"), "x");
  options_.names = NameEncoding::kBytes;
  options_.clientExe = "\\\x94\x4C.exe";
  options_.removals = {Removal("\x8C\xC3\x82\xA2"), Removal("\x83\x5C*.tmp", "R")};
  fs::remove_all("tree");
  WriteTree({"\x8A\x47/\x83\x5C\x81\x60\xB1.dat", "\xF0\x40\xFA\x40", "plain"});
  const auto output = Output();
  BuildPublication(options_);
  EXPECT_EQ(Output(), output);
}

TEST_F(Publication, NamesWithoutAnExactFormAreRefused) {
  const std::vector<std::tuple<std::string, const char*, const char8_t*>> cases = {
      {Utf8(u8"波〜線"), "U+301C", u8"波～線"},  // what others than Windows write for ～
      {Utf8(u8"か\u3099ソ"), "U+3099", u8"がソ_"},
      {Utf8(u8"ホ\u309A"), "U+309A", u8"ポ"},
      {Utf8(u8"ト\u3099ウ\u3099"), "U+3099, U+3099", u8"ドヴ"},
      {Utf8(u8"つ\u3099っ\u3099"), "U+3099, U+3099", u8"づっ_"},
      {Utf8(u8"か\u309A"), "U+309A", u8"か_"},
      {Utf8(u8"e\u0301"), "U+0301", u8"e_"},
      {Utf8(u8"\u0301あ,"), "U+0301", u8"_あ_"},
      {Utf8(u8"한국어게"), "U+D55C, U+AD6D, U+C5B4 and others", u8"____"},
      {Utf8(u8"x\U0001F600"), "U+1F600", u8"x_"},
      {Utf8(u8"\u00A5−"), "U+00A5, U+2212", u8"￥－"},
      {"\x83\x5C\x81!", "isn't UTF-8", u8"ソ_!"}};
  for (const auto& [name, fault, proposed] : cases) WriteTree({name});
  WriteTree({Utf8(u8"がソ_"), Utf8(u8"ー")});  // nothing is wrong with these
  options_.names = NameEncoding::kUtf8;
  options_.removals = {Removal(Utf8(u8"〜"))};
  std::string refusal = Refusal(options_);
  EXPECT_NE(refusal.find(" 13 reasons"), std::string::npos) << refusal;
  EXPECT_NE(
      refusal.find(Utf8(u8"  〜: holds U+301C, which code page 932 lacks; perhaps \"～\" is")),
      std::string::npos);
  for (const auto& [name, fault, proposed] : cases) {
    const std::string taken = fault == std::string("U+3099") ? "_" : "";
    const std::size_t at = refusal.find("tree/" + ShownPath(name) + ": ");
    ASSERT_NE(at, std::string::npos) << name;
    const std::string line = refusal.substr(at, refusal.find('\n', at) - at);
    EXPECT_NE(line.find(fault), std::string::npos) << line;
    EXPECT_NE(line.find("to \"" + taken + Utf8(proposed) + "\", or"), std::string::npos) << line;
  }

  fs::remove_all("tree");
  WriteTree({Utf8(u8"ー"), Utf8(u8"波/線.d"), "\x83\x5C.dat"});
  options_.clientExe = Utf8(u8"ー");
  options_.removals.clear();
  options_.names = NameEncoding::kGuess;
  refusal = Refusal(options_);
  EXPECT_NE(refusal.find(" 2 reasons"), std::string::npos) << refusal;
  EXPECT_NE(refusal.find(Utf8(u8"  tree/ー: has characters beyond ASCII in UTF-8, as 2 others do")),
            std::string::npos)
      << refusal;
  options_.names = NameEncoding::kBytes;
  EXPECT_EQ(Refusal(options_), "");
}

TEST(DiskText, PathsAreShownAsTheirNamesRead) {
  for (const auto& [path, shown] : std::vector<std::pair<std::string, const char8_t*>>{
           {"/home/a b", u8"/home/a b"},
           {Utf8(u8"猫\U0001F600/") + "\x83\x5C.dat/\xFF", u8"猫\U0001F600/ソ.dat/?"},
           {"a\x1B[2J\n/\x7F\xC2\x9B", u8"a?[2J?/??"}}) {
    EXPECT_EQ(ShownPath(path), Utf8(shown)) << path;
  }
  // Too long, half of a pair, beyond the last character, cut off, without a beginning.
  for (const char* text : {"\xC0\xAF", "\xE0\x82\xAF", "\xF0\x82\x82\xAF", "\xED\xA0\x80",
                           "\xF4\x90\x80\x80", "\xE7\x8C", "\xAF", "\xFF"}) {
    EXPECT_FALSE(IsUtf8(text)) << text;
  }
  EXPECT_TRUE(IsUtf8(Utf8(u8"a\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF")));
}

TEST_F(Publication, RemovesWhatIsGone) {
  // The character is another one than the old list's, not the same in another case.
  WriteTree({"DATA/case.dat", "back.dat", "was/file/now", "is", "\x83\x61.dat"});
  WriteFile("old.dat",
            "DEL : gone\\before.dat\nDEL : *.tmp, R\nDEL : data\\*, R\nDEL : Back.dat\nDEL : data\n"
            "FILE : data\\Case.DAT, H, 1, H, 1\nFILE : data\\old.dat.compressed, H, 1, H, 1\n"
            "FILE : \x83\x41.dat, H, 1, H, 1\nFILE : z.dat, H, 1, H, 1\nFILE : A.dat, H, 1, H, 1\n"
            "FILE : ./VelmoraUpdate.dat, H, 1, H, 1\nFILE : VelmoraUpdate.exe, H, 1, H, 1\n");
  options_.removeFrom = "old.dat";
  // The last two are similar to a file that stays.
  options_.removals = {Removal("d/m"), Removal("Z.dat"), Removal("*.TMP", "R"), Removal("dat"),
                       Removal("./d//*.da;/x*\\y", "R")};
  BuildPublication(options_);
  // The next time from the publication itself: what has gone stays gone.
  options_.removeFrom = "out";
  options_.removals.clear();
  fs::remove("tree/back.dat");
  BuildPublication(options_);
  const std::string list = ReadFile("out/hashlist.dat");
  EXPECT_EQ(list.substr(0, list.find("FILE")),
            "DEL : *.TMP, R\nDEL : A.dat\nDEL : Back.dat\\\nDEL : Z.dat\nDEL : back.dat\nDEL : "
            "d\\*.da;x*\\y, R\nDEL : d\\m\n"
            "DEL : dat\nDEL : data, R\nDEL : data\\old.dat\nDEL : gone\\before.dat\nDEL : "
            "\x83\x41.dat\n");
}

class PlayersOfManyPublications : public test::EngineTest {
 protected:
  // Publishes one tree after another, each with the removals that follow from the one before, or,
  // in their place, the one that is requested for it.
  void PublishAll(const std::vector<Names>& trees, const Texts& requests = {}) {
    const test::TemporaryFolder workshop;
    BuildOptions options;
    options.tree = "tree";
    options.output = "out";
    options.maxRemovedPercent = 100;
    for (std::size_t i = 0; i < trees.size(); ++i) {
      fs::remove_all("tree");
      for (const std::string& path : trees[i]) WriteFile("tree/" + path, path);
      const bool isRequested = i < requests.size() && !requests[i].empty();
      options.removals.clear();
      if (isRequested) options.removals = {Removal(requests[i])};
      options.removeFrom = isRequested ? "" : "out";
      BuildPublication(options);
      test::Files served;
      for (const auto& [path, content] : test::FilesHere()) {
        if (path.starts_with("out/")) served[path.substr(3)] = content;
      }
      served_.push_back(std::move(served));
    }
  }
  void ExpectUpdate(std::size_t number, const Names& tree) {
    Serve(served_[number]);
    for (int start = 1; start <= 2; ++start) {
      EXPECT_TRUE(Run());
      Names installed;
      for (const auto& [path, content] : test::FilesHere()) installed.insert(path);
      EXPECT_EQ(installed, tree) << "publication " << number << ", start " << start;
    }
    EXPECT_EQ(RequestedPaths().back(), "/hashlist.dat") << "the second start has nothing to do";
  }
  // Players may miss any of them.
  void ExpectUpdatesOnAllRoutes(const std::vector<Names>& trees) {
    for (unsigned seen = 1; seen < 1U << trees.size(); ++seen) {
      if (std::popcount(seen) > 3) continue;
      SCOPED_TRACE(seen);
      for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
      for (std::size_t i = 0; i < trees.size(); ++i) {
        if ((seen >> i & 1) != 0) ExpectUpdate(i, trees[i]);
      }
    }
  }
  std::vector<test::Files> served_;  // contents by request
};

TEST_F(PlayersOfManyPublications, FilesAndFoldersTakeEachOthersPlaces) {
  const std::vector<Names> trees = {{"k", "swap/a", "t/u/x", "t/y"},
                                    {"k", "swap/a/x", "t"},
                                    {"k", "swap/a", "t/u/x"},
                                    {"k"},
                                    {"k", "swap", "t/u"},
                                    {"k", "swap/a/b/c", "t/u/x"}};
  PublishAll(trees);
  const std::vector<std::string> removals = {
      "",
      "swap\\a, R; t\\; t\\u\\x; t\\y; ",
      "swap\\a\\; swap\\a\\x; t, R; t\\u\\x\\; t\\y; ",
      "swap\\a; swap\\a\\; swap\\a\\x; t, R; t\\u\\x; t\\u\\x\\; t\\y; ",
      "swap\\; swap\\a; swap\\a\\; swap\\a\\x; t, R; t\\u\\; t\\u\\x; t\\u\\x\\; t\\y; ",
      "swap, R; swap\\a, R; swap\\a\\x; t, R; t\\u, R; t\\u\\x\\; t\\y; "};
  for (std::size_t i = 0; i < trees.size(); ++i) {
    const std::string& list = served_[i].at("/hashlist.dat");
    EXPECT_EQ(RemovalsOf(list), removals[i]) << i;
    EXPECT_TRUE(LintList(list, {}).empty()) << i;
    for (std::size_t j = 0; j < i; ++j) {
      const PublishedList before(served_[j].at("/hashlist.dat"));
      EXPECT_TRUE(CompareLists(before, PublishedList(list)).inTheWay.empty()) << j << "->" << i;
    }
  }
  // They may still have empty folders of the last but one.
  ExpectUpdatesOnAllRoutes(trees);
}

// The list that removes the folder doesn't tell that it was one.
TEST_F(PlayersOfManyPublications, FolderThatWasRemovedByNameBecomesAFile) {
  const std::vector<Names> trees = {{"k", "d/e/f"}, {"k"}, {"d/e", "k"}, {"k"}, {"d/e/f", "k"}};
  PublishAll(trees, {"", "d\\e"});
  const std::vector<std::string> removals = {"", "d\\e; ", "d\\e\\; ", "d\\e; d\\e\\; ",
                                             "d\\e, R; "};
  for (std::size_t i = 0; i < trees.size(); ++i) {
    EXPECT_EQ(RemovalsOf(served_[i].at("/hashlist.dat")), removals[i]) << i;
  }
  ExpectUpdatesOnAllRoutes(trees);
}

TEST_F(Publication, LeavesOutWhatIsIgnored) {
  // The name in .git would be refused.
  WriteTree({"a.dat", ".git/config,v", "logs/keep.log", "sub/x.log", "sub/keep.log"});
  fs::create_symlink("a.dat", "tree/link");
  WriteFile("tree/.publishignore", ".git/\n*.log\n!keep.log\n/logs\nlink\n");
  BuildPublication(options_);
  EXPECT_EQ(PathsOf(ReadFile("out/hashlist.dat")), (Texts{"a.dat", "sub\\keep.log"}));
  options_.ignoreFile = "tree/sub/x.log";
  WriteFile("tree/sub/x.log", "link\n.git\n[kl]*.log");
  BuildPublication(options_);
  EXPECT_EQ(PathsOf(ReadFile("out/hashlist.dat")), (Texts{"a.dat"}));
  options_.ignoreFile = "none";
  EXPECT_NE(Refusal(options_), "");
}

TEST(IgnoreRules, MatchAsGitDoes) {
  // Rules, paths that they ignore, and other paths. A directory ends in a slash.
  for (const auto& [rules, ignored, others] : std::vector<std::tuple<const char*, Texts, Texts>>{
           {"", {".publishignore", ".publishlint"}, {"a/.publishlint"}},
           {"# a\n\n  \n\\#b\n\\!c\nd  \ne\\ \nf\r\ng\\\n/",
            {"#b", "!c", "d", "e ", "f"},
            {"# a", "e", "g\\", "x", "x/"}},
           {"a\nB\n/c\nd/e\nf/\n/g?h",
            {"a", "x/a", "c", "d/e", "x/f/"},
            {"ab", "b", "x/c", "x/d/e", "f", "g/h"}},
           {"*a*a*a*a*a*a*a*a*b", {}, {std::string(60, 'a')}},
           {"[[:digit:]]1\n[\\]]2\nd[/]3", {"71", "]2"}, {"d/3"}},
           {"**/a\nb/**/c", {"a", "x/y/a", "b/c", "b/x/y/c"}, {"x/ya"}},
           {"a/**\nd/e**f\ng**", {"a/x/y", "gxy"}, {"a/", "d/ex/f"}}}) {
    for (const bool expected : {true, false}) {
      for (const std::string& path : expected ? ignored : others) {
        const std::string name = path.substr(0, path.find_last_not_of('/') + 1);
        EXPECT_EQ(IgnoreRules(rules).Ignores(name, name != path), expected)
            << rules << ": " << path;
      }
    }
  }
}

TEST_F(Publication, RefusesOptionsBeforeAnyWork) {
  const std::string deep = std::string(100, 'd') + "/" + std::string(154, 'e');
  WriteTree({"a", "Data/sub/a.dat", "VelmoraUpdate.dat", "x;y/z", "VelmoraUpdate.exe/x", deep});
  std::vector<BuildOptions> refused;
  for (const char* name : {"", "..", "a/b", "a", "b.compressed", ".velmora-publish", "enable.cdn",
                           "my list", "a#1", "a?"}) {
    refused.emplace_back(options_).listName = name;
  }
  refused.emplace_back(options_).clientExe = "Game, or not.exe";
  refused.emplace_back(options_).clientExe = "Game.exe ";
  fs::create_symlink("nowhere", "leads");
  refused.emplace_back(options_).output = "leads";
  for (const char* output : {"tree/out", "tree", "."}) {
    refused.emplace_back(options_).output = output;
  }
  // Players would download what these remove at each start, or lose what isn't the game's.
  for (const char* path :
       {"two\nlines", "data\\SUB\\A.dat", "data/sub/a.dat", "VelmoraUpdate.exe", "*.tmp", "Data",
        ".\\data\\.\\sub. \\", ".", "..\\out", "velmoraupdate.dat"}) {
    refused.emplace_back(options_).removals = {Removal(path)};
  }
  for (const char* pattern :
       {"*.exe", "*.*", "DATA\\*", "x; *.dat", "*a?dat", "old\\", "..\\*.old", "C:\\game\\*.old"}) {
    refused.emplace_back(options_).removals = {Removal(pattern, "R")};
  }
  // Earlier lists: what they remove, what became of their files, and what is no list.
  for (const std::string& line :
       Texts{"DEL : a\\.. \\..\\x", "DEL : .\\", "FILE : ..\\x, H, 1, H, 1",
             "FILE : b, H, 1, H, 1\nFILE : X;Y, H, 1, H, 1", "FILE : VelmoraUpdate.exe, H, 1, H, 1",
             "FILE : " + std::string(deep).replace(100, 1, "\\") + "\\x, H, 1, H, 1", "no list",
             "FILE : a, H, 1, H, 1\n\n\nDEL : x, RRRRRRRRRRRRRRRRRRRRRRRRRRRRRRRRRRRRRRRRR"}) {
    refused.emplace_back(options_).removeFrom = "old" + std::to_string(refused.size());
    WriteFile(refused.back().removeFrom, line + "\n");
  }
  refused.emplace_back(options_).removeFrom = "none.dat";
  const auto before = test::FilesHere();
  for (std::size_t i = 0; i < refused.size(); ++i) {
    EXPECT_NE(Refusal(refused[i]), "") << i;
    EXPECT_THROW(static_cast<void>(PreviewPublication(refused[i])), PublishError) << i;
  }
  EXPECT_EQ(test::FilesHere(), before);
}

TEST_F(Publication, ListAppearsWhenAllIsThere) {
  for (int i = 100; i < 400; ++i) WriteFile("tree/" + std::to_string(i), "x");
  std::size_t missing = 0;
  std::jthread player([&missing](const std::stop_token& end) {
    while (!fs::exists("out/hashlist.dat") && !end.stop_requested()) {
    }
    for (int i = 100; i < 400; ++i) missing += fs::exists("out/" + std::to_string(i)) ? 0 : 1;
  });
  BuildPublication(options_);
  player.join();
  EXPECT_EQ(missing, 0U);
}

// Whatever goes wrong, players of the old publication find all that its list names.
TEST_F(Publication, FailureLeavesTheOldPublication) {
  WriteTree({"a", "m", "z"}, "old");
  BuildPublication(options_);
  WriteTree({"a", "n", "z"}, "new");
  const auto failsWithoutATrace = [&] {
    const auto before = test::FilesHere();
    EXPECT_NE(Refusal(options_), "");
    EXPECT_EQ(test::FilesHere(), before);
  };
  // The publisher stops it,
  const std::atomic<bool> stop = true;
  options_.payload.stop = &stop;
  failsWithoutATrace();
  options_.payload.stop = nullptr;
  // another build is at work,
  {
    const Staging other("out");
    failsWithoutATrace();
  }
  // or something that the old list doesn't name is in the way of a payload or the list.
  WriteFile("out/n/mine", "mine");
  failsWithoutATrace();
  fs::remove_all("out/n");
  WriteFile("out/new.dat/mine", "mine");
  options_.listName = "new.dat";
  failsWithoutATrace();
  fs::remove_all("out/new.dat");
  options_.listName = "hashlist.dat";
  WriteFile("out/d", "mine");
  WriteTree({"d/e/f"});
  failsWithoutATrace();
  fs::remove("out/d");
  EXPECT_EQ(Refusal(options_), "");
}

using Files = std::map<std::string, std::string>;

std::size_t VerifyErrors(const std::string& folder) {
  return VerifyOrigin(FolderOrigin(folder, "hashlist.dat"), {}).errors;
}

// Whether `found` has the list of one of the publications, and all of its payloads.
bool IsOneOf(const std::vector<Files>& publications, const Files& found) {
  const auto isIn = [&found](const auto& file) {
    const bool isForPlayers = file.first != ".velmora-publish";
    return !isForPlayers || (found.contains(file.first) && found.at(file.first) == file.second);
  };
  return std::any_of(publications.begin(), publications.end(), [&isIn](const Files& publication) {
    return std::all_of(publication.begin(), publication.end(), isIn);
  });
}

// Renames are what changes a publication. Each of them fails once, and is once the last thing that
// a build does before it is killed.
TEST_F(Publication, AllFilesTakeTheirPlacesOrNoneDoes) {
  WriteTree({"a", "b", "kind", "z/y/kind", "z/y/x/kind"}, "old");
  WriteTree({"inner/.publishing-trial"}, "unchanged");
  BuildPublication(options_);
  const auto old = Output();
  fs::copy("out", "old", fs::copy_options::recursive);
  for (const char* path : {"tree/kind", "tree/z/y"}) fs::remove_all(path);
  WriteTree({"a", "b", "inner/new", "kind/d/e", "kind/f", "z/y"}, "new");
  BuildPublication(options_);
  auto whole = Output();
  const auto restart = [] {
    fs::remove_all("out");
    fs::copy("old", "out", fs::copy_options::recursive);
  };
  std::set<bool> finished;
  bool isReached = true;
  for (int last = 0; isReached; ++last) {
    restart();
    renames = {.left = last, .fail = true};
    isReached = !Refusal(options_).empty();
    EXPECT_TRUE(!isReached || Output() == old) << last;

    for (const bool cannotFinish : {false, true}) {
      restart();
      if (const pid_t child = fork(); child == 0) {
        renames = {.left = last, .kill = true};
        BuildPublication(options_);
        _exit(0);
      } else {
        waitpid(child, nullptr, 0);
      }
      EXPECT_EQ(VerifyErrors("out") > 0, !IsOneOf({old, whole}, Output())) << last;
      renames = {.left = cannotFinish && isReached ? 0 : -1, .fail = true};
      RecoverPublication("out");
      renames = {};
      const auto found = Output();
      EXPECT_TRUE(found == old || (found == whole && !(cannotFinish && isReached))) << last;
      finished.insert(found == whole);
      EXPECT_EQ(VerifyErrors("out"), 0U);
      EXPECT_FALSE(fs::exists("out/.publishing"));
    }
  }
  EXPECT_EQ(finished.size(), 2U) << "what had begun is finished";
}

TEST_F(Publication, WhatCannotBeTakenBackIsFinishedLater) {
  WriteTree({"a", "b"});
  renames = {.left = 5, .fail = true, .forever = true};  // all but the list take their places
  EXPECT_NE(Refusal(options_).find("velmora-publish recover"), std::string::npos);
  renames = {};
  EXPECT_EQ(RecoverPublication("out"), Leftover::kFinished);
  const auto recovered = Output();
  BuildPublication(options_);
  EXPECT_EQ(Output(), recovered);
}

TEST_F(Publication, LeftoversAreTouchedOnlyIfUnderstood) {
  WriteTree({"a"});
  BuildPublication(options_);
  WriteFile("out/.publishing/journal", "0 1 a\n");  // its end is lost
  WriteFile("out/.publishing/0", "new");
  WriteFile("out/.publishing/mine", "mine");
  const auto before = test::FilesHere();
  EXPECT_THROW(RecoverPublication("out"), PublishError);
  EXPECT_NE(Refusal(options_).find("remove out/.publishing with all"), std::string::npos);
  EXPECT_EQ(test::FilesHere(), before);
  fs::remove("out/.publishing/journal");
  EXPECT_EQ(RecoverPublication("out"), Leftover::kNone);
  EXPECT_EQ(ReadFile("out/.publishing/mine") + ReadFile("out/.publishing/0"), "mine(none)");
  fs::remove_all("out/.publishing");
  fs::create_directory_symlink("../tree", "out/.publishing");
  EXPECT_NE(Refusal(options_), "");
  EXPECT_EQ(ReadFile("tree/a"), "x");
}

TEST_F(Publication, TreeThatLacksMuchIsRefused) {
  options_.maxRemovedPercent = BuildOptions().maxRemovedPercent;
  EXPECT_NE(Refusal(options_), "") << "there is no tree";
  fs::create_directory("tree");
  EXPECT_NE(Refusal(options_).find("--allow-empty"), std::string::npos);
  EXPECT_FALSE(fs::exists("out"));
  WriteTree({"a", "b", "c", "d"}, "12345678");
  options_.removeFrom = "out";  // from the first time on
  BuildPublication(options_);

  fs::remove_all("tree");
  WriteTree({"A", "b", "c", "e"}, "12345678");  // a quarter is gone, in files and in bytes
  WriteFile("tree/b", "changed");
  const Changes changes = BuildPublication(options_).changes;
  EXPECT_EQ(std::tuple(changes.added, changes.changed, changes.removed), std::tuple(1U, 1U, 1U));
  const auto before = Output();
  fs::remove("tree/e");
  WriteFile("tree/new", "");
  const std::string refusal = Refusal(options_);
  EXPECT_NE(refusal.find("lacks 1 of 4 files, 8 of 31 bytes"), std::string::npos) << refusal;
  EXPECT_TRUE(refusal.ends_with("\n  e, 8 bytes")) << refusal;
  WriteTree({"A", "b", "c", "e"}, "");
  EXPECT_NE(Refusal(options_).find("lacks 0 of 4 files, 31 of 31 bytes"), std::string::npos);
  // A list that names less than the one that is replaced, and one that nobody can read.
  WriteFile("part.dat", "FILE : a, H, 0, H, 0\n");
  options_.removeFrom = "part.dat";
  EXPECT_NE(Refusal(options_).find("of 4 files, 31 of 31 bytes"), std::string::npos);
  const std::string list = ReadFile("out/hashlist.dat");
  for (const char* damaged : {"no list", ""}) {
    WriteFile("out/hashlist.dat", damaged);
    EXPECT_NE(Refusal(options_).find("move it away"), std::string::npos) << damaged;
  }
  WriteFile("out/hashlist.dat", list);
  options_.removeFrom = "out";
  fs::remove_all("tree");
  fs::create_directory("tree");
  options_.allowEmpty = true;
  EXPECT_NE(Refusal(options_), "");
  EXPECT_EQ(Output(), before);
}

TEST_F(Publication, FileThatChangesIsRefused) {
  WriteFile("tree/a", "content");
  WriteFile("tree/large", Numbers(9 * kMiB));
  const SourceFile whole{"tree/large", "large", 9 * kMiB};
  for (const SourceFile& file :
       {SourceFile{"tree/a", "a", 8}, SourceFile{"tree/a", "a", 6}, SourceFile{"tree/b", "b", 1},
        SourceFile{"tree/large", "large", 9 * kMiB + 1}}) {
    for (const Compress compress : {Compress::kNever, Compress::kAlways}) {
      PayloadOptions options;
      options.compress = compress;
      const std::vector<PayloadTask> tasks = {{&whole, "1"}, {&file, "2"}, {&whole, "3"}};
      EXPECT_THROW(static_cast<void>(WritePayloads(tasks, options)), PublishError);
      EXPECT_FALSE(fs::exists("2")) << file.listPath << file.size;
    }
  }
}

TEST_F(Publication, AllFilesThatCannotBeReadAreNamed) {
  WriteTree({"a"});
  Complaints complaints;
  CheckReadable({{"tree/a", "a", 1}}, complaints);
  EXPECT_FALSE(complaints.HasAny());
  CheckReadable({{"tree/b", "b", 1}, {"tree/a", "a", 1}, {"tree/c", "c", 1}}, complaints);
  try {
    complaints.ThrowIfAny();
    ADD_FAILURE();
  } catch (const PublishError& error) {
    const std::string text = error.what();
    for (const char* part : {"2 reasons", "  tree/b: can't be read: No such", "  tree/c: can't"}) {
      EXPECT_NE(text.find(part), std::string::npos) << text;
    }
  }
}

TEST_F(Publication, ListIsReadBackAsAPatcherWould) {
  const auto record = [](const std::string& path) {
    return FileRecord{path, "H", "1", "H", "1", false};
  };
  using Records = std::vector<FileRecord>;
  for (const Records& refused :
       {Records{record("a"), record("a")}, {record("a,b")}, {record(std::string(600, 'x'))}}) {
    EXPECT_THROW(static_cast<void>(ListText(refused, {}, "")), PublishError);
  }

  // However many records are the patcher's, they come first, and its program before all.
  Records records;
  for (const char* path : {"VelmoraUpdate.exe", "zzzzzzzzzzzzzzzzzzzzzzzzz", "./VelmoraUpdate.dat",
                           "b", "cc", "lang\\VelmoraUpdate.ja", "aaaaaaaaaaa"}) {
    records.push_back(record(path));
  }
  EXPECT_EQ(PathsOf(ListText(records, {}, "Game.exe")),
            (Texts{"VelmoraUpdate.exe", "lang\\VelmoraUpdate.ja", "./VelmoraUpdate.dat", "b", "cc",
                   "aaaaaaaaaaa", "zzzzzzzzzzzzzzzzzzzzzzzzz"}));
}

}  // namespace
// In place of the C library's, for std::filesystem as well.
extern "C" int rename(const char* from, const char* to) {
  const bool isLast = renames.left == 0;
  if (isLast && renames.kill) _exit(0);
  if (renames.left > 0 || (isLast && !renames.forever)) --renames.left;
  if (isLast && renames.fail) {
    errno = EACCES;
    return -1;
  }
  return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

}  // namespace velmora::publish
