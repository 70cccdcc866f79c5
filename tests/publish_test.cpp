#include <gtest/gtest.h>
#include <zlib.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "engine/record_set.h"
#include "engine/reference_list.h"
#include "publish/list_text.h"
#include "publish/publication.h"
#include "publish/publish_error.h"
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
  static BuildOptions Options(bool compress) {
    BuildOptions options;
    options.tree = "tree";
    options.output = "out";
    options.payload.compress = compress;
    return options;
  }
  static std::map<std::string, std::string> Output() {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator("out")) {
      if (entry.is_regular_file()) {
        files[entry.path().lexically_relative("out").generic_string()] = ReadFile(entry.path());
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
  BuildOptions options = Options(false);
  options.clientExe = "\\bin\\Game.exe";
  options.removals = {{.path = "old.dat",
                       .transferHash = "",
                       .transferSize = "",
                       .contentHash = "",
                       .contentSize = ""}};
  const BuildSummary summary = BuildPublication(options);
  EXPECT_EQ(summary.files, 4U);
  EXPECT_EQ(summary.contentBytes, 17U);
  EXPECT_EQ(Output(),
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
  const auto first = Output();
  BuildPublication(options);
  EXPECT_EQ(Output(), first);
  options.payload.hash = HashKind::kMd5;
  BuildPublication(options);
  EXPECT_NE(ReadFile("out/hashlist.dat").find(test::Md5("program") + ", 7"), std::string::npos);
}

TEST_F(Publication, CompressesWhatGetsSmaller) {
  std::string text;
  for (int i = 0; i < 200000; ++i) text += std::to_string(i) + ' ';  // many pieces
  std::string noise;
  for (unsigned i = 0, n = 1; i < 100000; ++i)
    noise += static_cast<char>((n = n * 1664525 + 1013904223) >> 24);
  // With the mark behind them, this path would be longer than a list can say, and this name longer
  // than a disk takes.
  const std::string name(246, 'n');
  const std::string deep = std::string(125, 'd') + "/" + std::string(127, 'f');
  WriteFile("tree/text", text);
  WriteFile("tree/noise", noise);
  WriteFile("tree/empty", "");
  WriteFile("tree/" + deep, text);
  WriteFile("tree/" + name, text);
  EXPECT_EQ(BuildPublication(Options(true)).compressed, 1U);
  const auto output = Output();
  EXPECT_EQ(output.size(), 6U);
  EXPECT_EQ(output.at("noise"), noise);
  EXPECT_EQ(output.at(deep), text);
  EXPECT_EQ(output.at(name), text);
  const std::string& stream = output.at("text.compressed");
  EXPECT_LT(stream.size(), text.size() / 2);
  EXPECT_EQ(Expanded(stream, text.size()), text);
  EXPECT_NE(output.at("hashlist.dat")
                .find("FILE : text.compressed, " + test::Sha1(stream) + ", " +
                      std::to_string(stream.size()) + ", " + test::Sha1(text) + ", " +
                      std::to_string(text.size()) + "\n"),
            std::string::npos);
}

TEST_F(Publication, SameTreeGivesTheSameBytes) {
  std::vector<std::pair<std::string, std::string>> files;
  for (int i = 0; i < 40; ++i) {
    files.emplace_back("d" + std::to_string(i % 7) + "/f\xE9" + std::to_string(i),
                       std::string(static_cast<std::size_t>(i) * 9000, static_cast<char>(i)));
  }
  for (const auto& [name, content] : files) WriteFile("tree/" + name, content);
  for (auto at = files.rbegin(); at != files.rend(); ++at)
    WriteFile("other/" + at->first, at->second);
  fs::last_write_time(
      "other/d0/f\xE9"
      "0",
      fs::file_time_type::min());
  BuildPublication(Options(true));
  const auto first = Output();
  fs::remove_all("out");
  BuildOptions options = Options(true);
  options.tree = "other/";
  BuildPublication(options);
  EXPECT_EQ(Output(), first);
}

TEST_F(Publication, DoubleByteNamesAreServedAsTheyAreAskedFor) {
  WriteFile("tree/\x95\x5C.dat", "hyou");
  BuildPublication(Options(false));
  EXPECT_EQ(ReadFile("out/\x95/.dat"), "hyou");
  EXPECT_TRUE(ReadFile("out/hashlist.dat").starts_with("FILE : \x95\x5C.dat, "));
}

TEST_F(Publication, RefusesWhatAPatcherCannotTake) {
  struct Case {
    std::string name;
    std::string reason;  // a part of the message
  };
  const std::string deep = std::string(130, 'd') + "/" + std::string(129, 'f');
  std::string blanks;  // each is three bytes long in a request
  for (int i = 0; i < 60; ++i) blanks += "d e/";
  const std::vector<Case> cases = {
      {"a,b", "comma"},
      {" lead", "blank"},
      {"trail ", "blank"},
      {"a\nb", "control"},
      {"a\\b", "backslash"},
      {"a.compressed.dat", ".compressed"},
      {"a?b", "question mark"},
      {"a%41", "percent"},
      {"\xE3\x81\x82/f", "half a character"},
      {"\x95\x5C", "ends in the byte 5C"},
      {deep, "259 bytes"},
      {blanks + "f", "escaping"},
      {"Session.log", "of its own"},
      {"VelmoraUpdate.cvc", "of its own"},
      {"_VelmoraUpdate.exe", "of its own"},
      {"hashlist.dat", "is taken"},
      {"hashlist.dat/f", "is taken"},
      {".publishing/0", "is taken"},
      {"\x95/x", "half a character"},  // asked for as is \x95\x5Cx
  };
  for (const auto& [name, reason] : cases) {
    fs::remove_all("tree");
    WriteFile("tree/ok", "x");
    WriteFile("tree/" + name, "x");
    try {
      BuildPublication(Options(true));
      ADD_FAILURE() << name;
    } catch (const PublishError& error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
    EXPECT_FALSE(fs::exists("out")) << name;
  }
  fs::remove_all("tree");
  WriteFile("tree/good", "x");
  fs::create_symlink("good", "tree/link");
  EXPECT_THROW(BuildPublication(Options(false)), PublishError);
  EXPECT_TRUE(ReasonAgainst("f", 0x7FFFFFFF).empty());
  EXPECT_FALSE(ReasonAgainst("f", 0x80000000).empty());
  EXPECT_TRUE(ReasonAgainst(std::string(128, 'd') + "\\" + std::string(129, 'f'), 0).empty());
  EXPECT_FALSE(ReasonAgainst(std::string(129, 'd') + "\\" + std::string(129, 'f'), 0).empty());
}

TEST_F(Publication, RefusesOptionsBeforeAnyWork) {
  WriteFile("tree/a", "x");
  const auto refused = [](BuildOptions options) {
    EXPECT_THROW(BuildPublication(options), PublishError);
    EXPECT_EQ(Output().size(), 0U);
  };
  fs::create_directory("out");
  BuildOptions options = Options(false);
  for (const char* name : {"", "..", "a/b", "a", "b.compressed"}) {
    options.listName = name;
    refused(options);
  }
  options = Options(false);
  options.clientExe = "Game, or not.exe";
  refused(options);
  options = Options(false);
  options.removals.emplace_back().path = "two\nlines";
  refused(options);
  for (const auto& [tree, output] :
       {std::pair("tree", "tree/out"), std::pair("tree/", "tree"), std::pair("tree", ".")}) {
    options = Options(false);
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
  BuildPublication(Options(false));
  player.join();
  EXPECT_EQ(missing, 0U);
}

// Whatever goes wrong, players of the old publication find all that its list names.
TEST_F(Publication, FailureLeavesTheOldPublication) {
  WriteFile("tree/a", "old");
  WriteFile("tree/m", "old");
  WriteFile("tree/z", "old");
  BuildPublication(Options(false));
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
  fails(Options(false));
  fs::remove_all("out/n");
  // The list can't.
  BuildOptions options = Options(false);
  options.listName = "new.dat";
  fs::create_directory("out/new.dat");
  fails(options);
  // The publisher stops it.
  const std::atomic<bool> stop = true;
  options = Options(true);
  options.payload.stop = &stop;
  fails(options);
  // Another build is at work, whose files stay.
  WriteFile("out/.publishing/0", "another's");
  EXPECT_THROW(BuildPublication(Options(false)), PublishError);
  EXPECT_EQ(ReadFile("out/.publishing/0"), "another's");
  fs::remove_all("out/.publishing");
  EXPECT_EQ(Output(), before);
}

TEST_F(Publication, FileThatChangesIsRefused) {
  WriteFile("tree/a", "content");
  const SourceFile longer{"tree/a", "a", 8};
  const SourceFile gone{"tree/b", "b", 0};
  for (const SourceFile& file : {longer, gone}) {
    EXPECT_THROW(static_cast<void>(WritePayload(file, "payload", {})), PublishError);
    EXPECT_FALSE(fs::exists("payload"));
  }
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
