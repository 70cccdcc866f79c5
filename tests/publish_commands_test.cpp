// What all commands of velmora-publish have in common.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "publish/build/payload.h"
#include "publish/common/progress_line.h"
#include "support/publish_tool.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

using test::RunPublish;

class Commands : public testing::Test {
 protected:
  // The tool's commands, as its help lists them.
  static std::vector<std::string> All() {
    std::istringstream help(RunPublish("--help"));
    std::vector<std::string> names;
    std::string line;
    while (std::getline(help, line) && line != "Subcommands:") {
    }
    while (std::getline(help, line) && line.starts_with("  ")) {
      names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
  }
  test::TemporaryFolder folder_;
};

TEST_F(Commands, HelpTellsExitStatusAndAnExample) {
  const auto names = All();
  EXPECT_GE(names.size(), 5U);
  for (const std::string& name : names) {
    const std::string help = RunPublish(name + " --help");
    EXPECT_TRUE(help.starts_with("0: ")) << help;
    EXPECT_NE(help.find("\nExit status: 0 "), std::string::npos) << help;
    EXPECT_NE(help.find("\nExample: velmora-publish " + name + " "), std::string::npos) << help;
  }
}

TEST_F(Commands, WhatMakesNoSenseIsNamed) {
  test::WriteFile("tree/a", "a");
  const std::pair<const char*, const char*> cases[] = {
      {"", "which command? Commands: build, "},
      {"bogus", "there is no command \"bogus\". Commands: build, "},
      {"dfif tree out", "there is no command \"dfif\"; did you mean \"diff\"? Commands: "},
      {"--allow-empty build tree out", "\"--allow-empty\" belongs after \"build\""},
      {"build --verbose tree out", "there is no option \"--verbose\"\n"},
      {"build tree", "OUT is required\nvelmora-publish build --help tells more."},
      {"build tree out more", "\"more\" is one argument too many"},
      // Not that "never" is no folder.
      {"build --comprss never tree out",
       "there is no option \"--comprss\"; did you mean \"--compress\"?"},
      {"verify", "WHERE or --settings is required"},
      {"verify . --settings=tree/a", "WHERE excludes --settings"},
      {"verify --setings=x", "there is no option \"--setings\"; did you mean \"--settings\"?"},
      {"build --compress maybe tree out", "--compress: \"maybe\" is none of always, never, pays"},
      {"build --compress 0 tree out", "--compress: \"0\" is none of always, never, pays"},
      {"build --hash SHA tree out", "--hash: \"SHA\" is none of sha1, md5"},
      {"build tree out --remove-from ''", "--remove-from: is empty; is a variable not set?"},
      {"build tree ''", "OUT: is empty"},
      {"rollback --from tree tree --into ''", "--into: is empty"},
      {"build --plain a.b tree out", "--plain: \"a.b\" is not an extension"},
  };
  for (const auto& [arguments, expected] : cases) {
    const std::string result = RunPublish(arguments + std::string(" 2>&1"));
    EXPECT_TRUE(result.starts_with("2: velmora-publish: " + std::string(expected))) << result;
  }
  EXPECT_EQ(test::FilesHere().size(), 1U);
}

TEST_F(Commands, UnfinishedPublicationIsNamed) {
  test::WriteFile("tree/a", "a");
  ASSERT_TRUE(RunPublish("build tree out").starts_with("0: "));
  test::WriteFile("out/.publishing/journal", "0 0 b\nend 1\n");
  for (const std::string command : {"verify out", "lint out", "diff out out"}) {
    const std::string warned = RunPublish(command + " 2>&1 >/dev/null");
    EXPECT_TRUE(warned.starts_with("0: velmora-publish: warning: out: a build is")) << warned;
    EXPECT_NE(warned.find("velmora-publish recover out\n"), std::string::npos) << warned;
  }
  for (const std::string option : {"--reuse out", "--remove-from out"}) {
    const std::string refused = RunPublish("build tree other 2>&1 " + option);
    EXPECT_TRUE(refused.starts_with("1: velmora-publish: out: a build is")) << refused;
  }
}

// Whether the disk is full or nobody reads: what wasn't told isn't a success.
TEST_F(Commands, LostOutputIsAFailure) {
  test::WriteFile("tree/a", "a");
  ASSERT_TRUE(RunPublish("build tree out").starts_with("0: "));
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  const std::string unread = " 2>&1 >&" + std::to_string(ends[1]);
  for (const std::string command :
       {"--help", "--version", "build tree out", "build --help", "diff out out --json", "lint out",
        "lint --rules", "recover out", "verify out", "verify out --json"}) {
    const std::string full = RunPublish(command + " 2>&1 >/dev/full");
    EXPECT_TRUE(full.starts_with("1: velmora-publish: the output can't be written")) << full;
    EXPECT_EQ(RunPublish(command + unread), "1: ");
  }
  close(ends[1]);
  EXPECT_TRUE(
      RunPublish("build tree other 2>&1 >&-").starts_with("1: velmora-publish: the output"));
  EXPECT_EQ(test::ReadFile("other/hashlist.dat"), test::ReadFile("out/hashlist.dat"));
}

// The figures of one JSON object, or a line of text, or nothing; never progress in a pipe, unless
// it is asked for. Threads change nothing.
TEST_F(Commands, BuildPrintsWhatIsWanted) {
  test::WriteFile("tree/a", std::string(20 << 20, 'a'));
  for (int i = 0; i < 50; ++i) test::WriteFile("tree/f" + std::to_string(i), std::string(i, 'f'));
  using nlohmann::json;
  json first;
  for (const std::string jobs : {"1", "2", "5"}) {
    const std::string out = "out" + jobs;
    const std::string text = RunPublish("build tree " + out + " --json 2>&1 --jobs " + jobs);
    ASSERT_TRUE(text.starts_with("0: {")) << text;
    json report = json::parse(text.substr(3));
    EXPECT_GE(report["seconds"], 0);
    report.erase("seconds");
    if (first.is_null()) first = report;
    EXPECT_EQ(report, first);
    EXPECT_EQ(report["added"], 51);
    EXPECT_EQ(report["leftover"], "none");
    EXPECT_EQ(report["warnings"], json::array());
    for (const auto& entry : std::filesystem::directory_iterator(out)) {
      EXPECT_EQ(test::ReadFile(entry.path()), test::ReadFile("out1" / entry.path().filename()));
    }
  }
  EXPECT_EQ(RunPublish("build tree out1 --quiet 2>&1"), "0: ");
  EXPECT_TRUE(RunPublish("build tree out1 2>&1").starts_with("0: 0 added, 0 changed, 0 removed\n"));
  std::filesystem::remove("tree/f0");
  for (const auto& [option, told] : {std::pair("", "1 gone from the list, but players keep them"),
                                     std::pair(" --remove-from out2", "1 removed\n")}) {
    const std::string text = RunPublish(std::string("build tree out2 --dry-run") + option);
    EXPECT_NE(text.find(told), std::string::npos) << text;
  }
  const std::string drawn = RunPublish("build tree out1 --progress 2>&1 >/dev/null");
  EXPECT_TRUE(drawn.starts_with("0: \r\x1B[K") && drawn.ends_with("\r\x1B[K")) << drawn;
  EXPECT_EQ(RunPublish("build nowhere out1 --json --quiet 2>/dev/null"), "2: ");
}

TEST(ProgressLine, ShowsWhatIsDoneAndWhatIsLeft) {
  Progress progress;
  EXPECT_EQ(ProgressText(progress, 0), "[----------------] 0/0 files, 0.0 kB");
  progress.Begin("reading the tree", 0, 0);
  EXPECT_EQ(ProgressText(progress, 5), "reading the tree");
  progress.Begin("writing", 4, 8'000'000'000'000);
  progress.files = 1;
  progress.bytes = 2'000'000'000'000;
  EXPECT_EQ(ProgressText(progress, 0.1), "writing [####------------] 1/4 files, 2.0 TB");
  EXPECT_EQ(ProgressText(progress, 4000),
            "writing [####------------] 1/4 files, 2.0 TB, 500.0 MB/s, 3:20:00 left");
  progress.phase = "";
  EXPECT_EQ(ProgressText(progress, 20),
            "[####------------] 1/4 files, 2.0 TB, 100.0 GB/s, 1:00 left");
  progress.Begin("comparing", 2, 0);  // empty files
  progress.files = 1;
  EXPECT_EQ(ProgressText(progress, 1),
            "comparing [########--------] 1/2 files, 0.0 kB, 0.0 kB/s, 0:01 left");
  progress.findings = 12;
  EXPECT_EQ(ProgressText(progress, 1),
            "comparing [#######--------] 1/2 files, 12 findings, 0.0 kB, 0.0 kB/s, 0:01 left");
  progress.findings = 100'000;  // the bar gives way
  EXPECT_EQ(ProgressText(progress, 100),
            "comparing [#####------] 1/2 files, 100000 findings, 0.0 kB, 0.0 kB/s, 1:40 left");
  progress.filesTotal = progress.files = progress.bytes = progress.bytesTotal = 999'999'999'999;
  EXPECT_LE(ProgressText(progress, 1).size(), 79U);
}

// What has to be read twice, since its compression doesn't pay, counts twice.
TEST_F(Commands, ProgressEndsAtItsTotal) {
  std::string noise;
  for (unsigned n = 1; noise.size() < 40 << 18;)
    noise += static_cast<char>((n = n * 1664525 + 1013904223) >> 24);
  test::WriteFile("tree/large", noise);
  test::WriteFile("tree/small", noise.substr(0, 1000));
  test::WriteFile("tree/text", std::string(1000, 't'));
  const SourceFile files[] = {{"tree/large", "large", noise.size()},
                              {"tree/small", "small", 1000},
                              {"tree/text", "text", 1000}};
  Progress progress;
  progress.Begin("", 3, noise.size() + 2000);
  PayloadOptions options;
  options.progress = &progress;
  static_cast<void>(WritePayloads({{&files[0], "0"}, {&files[1], "1"}, {&files[2], "2"}}, options));
  EXPECT_EQ(progress.files, 3U);
  EXPECT_GT(progress.bytes, noise.size() + 3000);
  EXPECT_EQ(progress.bytes, progress.bytesTotal);
}

TEST_F(Commands, VersionNamesWhatDecidesTheBytes) {
  EXPECT_TRUE(RunPublish("--version").starts_with("0: velmora-publish 1."));
  test::WriteFile("tree/a", "a");
  ASSERT_TRUE(RunPublish("build tree out --compress always --hash md5").starts_with("0: "));
  const std::string version = RunPublish("--version");
  const std::string maker = version.substr(version.find(", ") + 2);
  EXPECT_NE(test::ReadFile("out/.velmora-publish").find(maker.substr(0, maker.size() - 1)),
            std::string::npos);
  EXPECT_NE(test::ReadFile("out/hashlist.dat").find("a.compressed, "), std::string::npos);
  EXPECT_NE(test::ReadFile("out/hashlist.dat").find(test::Md5("a")), std::string::npos);
}

}  // namespace
}  // namespace velmora::publish
