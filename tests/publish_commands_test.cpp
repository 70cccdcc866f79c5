// What all commands of velmora-publish have in common.
#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

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
      {"verify --setings=x", "there is no option \"--setings\"; did you mean \"--settings\"?"},
      {"build --compress maybe tree out", "--compress: \"maybe\" is none of always, never, pays"},
      {"build --compress 0 tree out", "--compress: \"0\" is none of always, never, pays"},
      {"build --hash SHA tree out", "--hash: \"SHA\" is none of sha1, md5"},
      {"build --plain a.b tree out", "--plain: \"a.b\" is not an extension"},
  };
  for (const auto& [arguments, expected] : cases) {
    const std::string result = RunPublish(arguments + std::string(" 2>&1"));
    EXPECT_TRUE(result.starts_with("2: velmora-publish: " + std::string(expected))) << result;
  }
  EXPECT_EQ(test::FilesHere().size(), 1U);
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
