#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/record_set.h"
#include "engine/reference_list.h"
#include "publish/publication.h"
#include "publish/publish_error.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;
using test::ReadFile;
using test::WriteFile;

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
  // Again, into another folder and by MD5: the same order; and the same bytes once more.
  const auto first = Output();
  BuildPublication(options);
  EXPECT_EQ(Output(), first);
  options.payload.hash = HashKind::kMd5;
  BuildPublication(options);
  EXPECT_NE(ReadFile("out/hashlist.dat").find(test::Md5("program") + ", 7"), std::string::npos);
}

TEST_F(Publication, CompressesWhatGetsSmaller) {
  const std::string text(100000, 't');
  std::string noise;
  for (unsigned i = 0, n = 1; i < 100000; ++i)
    noise += static_cast<char>((n = n * 1664525 + 1013904223) >> 24);
  WriteFile("tree/text", text);
  WriteFile("tree/noise", noise);
  WriteFile("tree/empty", "");
  EXPECT_EQ(BuildPublication(Options(true)).compressed, 1U);
  const auto output = Output();
  EXPECT_EQ(output.size(), 4U);
  EXPECT_EQ(output.at("noise"), noise);
  const std::string& stream = output.at("text.compressed");
  EXPECT_LT(stream.size(), 1000U);
  EXPECT_NE(output.at("hashlist.dat")
                .find("FILE : text.compressed, " + test::Sha1(stream) + ", " +
                      std::to_string(stream.size()) + ", " + test::Sha1(text) + ", 100000\n"),
            std::string::npos);
}

TEST_F(Publication, DoubleByteNamesAreServedAsTheyAreAskedFor) {
  WriteFile("tree/\x95\x5C.dat", "hyou");
  BuildPublication(Options(false));
  EXPECT_EQ(ReadFile("out/\x95/.dat"), "hyou");
  EXPECT_TRUE(ReadFile("out/hashlist.dat").starts_with("FILE : \x95\x5C.dat, "));
}

TEST_F(Publication, RefusesWhatAPatcherCannotTake) {
  const std::string deep = std::string(130, 'd') + "/" + std::string(129, 'f');
  for (const std::string& name :
       {std::string("a,b"), std::string(" lead"), std::string("trail "), std::string("a\nb"),
        std::string("a\\b"), std::string("a.compressed.dat"), deep}) {
    fs::remove_all("tree");
    fs::remove_all("out");
    WriteFile("tree/good", "x");
    WriteFile("tree/" + name, "x");
    EXPECT_THROW(BuildPublication(Options(false)), PublishError) << name;
    EXPECT_FALSE(fs::exists("out")) << name;
  }
  fs::remove_all("tree");
  WriteFile("tree/good", "x");
  fs::create_symlink("good", "tree/link");
  EXPECT_THROW(BuildPublication(Options(false)), PublishError);
  EXPECT_TRUE(ReasonAgainst("f", 0x7FFFFFFF).empty());
  EXPECT_FALSE(ReasonAgainst("f", 0x80000000).empty());
}

TEST_F(Publication, FailureLeavesTheOldListAndNoHalfFile) {
  WriteFile("tree/a", "new");
  WriteFile("out/hashlist.dat", "old list");
  fs::create_directories("out/a/in the way");
  EXPECT_THROW(BuildPublication(Options(false)), PublishError);
  EXPECT_EQ(Output(), (std::map<std::string, std::string>{{"hashlist.dat", "old list"}}));
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

  // However many records the patcher has, they come first.
  std::vector<FileRecord> records;
  for (const char* path : {"VelmoraUpdate.exe", "zzzzzzzzzzzzzzzzzzzzzzzzz", "b", "cc",
                           "VelmoraUpdate.chm", "lang\\VelmoraUpdate.ja", "aaaaaaaaaaa"}) {
    records.push_back(record(path));
  }
  FileRecordSet set;
  FileRecordSet removals;
  std::string client;
  ParseReferenceList(ListText(records, {}, ""), set, removals, client, [](std::string_view) {});
  EXPECT_EQ(set.begin()->path, "VelmoraUpdate.exe");
}

}  // namespace
}  // namespace velmora::publish
