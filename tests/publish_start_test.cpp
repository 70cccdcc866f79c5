// What the linter and a build say of what players start with: the patcher, its settings, the
// client.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "publish/build/publication.h"
#include "publish/common/publish_error.h"
#include "publish/lint/lint.h"
#include "publish/lint/program_file.h"
#include "support/publish_tool.h"
#include "support/workspace.h"

namespace velmora::publish {

void PrintTo(Rule rule, std::ostream* out);  // in publish_lint_test.cpp

namespace {

namespace fs = std::filesystem;
using enum Rule;
using test::WriteFile;

// `width` bytes, the lowest first.
std::string Bytes(std::uint64_t number, std::size_t width) {
  std::string bytes;
  for (std::size_t i = 0; i < width; ++i) bytes += static_cast<char>(number >> 8 * i);
  return bytes;
}

// Every byte of these programs is needed.
std::string Pe(std::uint64_t machine, std::uint64_t magic, std::size_t fixedHeader) {
  const std::size_t data = 64 + 24 + fixedHeader + 40 + 2 * 40;
  std::string optional = Bytes(magic, 2);
  optional.resize(68);
  optional += Bytes(2, 2);  // a window
  optional.resize(fixedHeader - 4);
  optional += Bytes(5, 4) + std::string(32, '\0') + Bytes(data + 24, 4) + Bytes(8, 4);
  const auto section = [](const std::string& name, std::size_t size, std::size_t offset) {
    return name + std::string(16 - name.size(), '\0') + Bytes(size, 4) + Bytes(offset, 4) +
           std::string(16, '\0');
  };
  return "MZ" + std::string(58, '\0') + Bytes(64, 4) + std::string("PE\0\0", 4) +
         Bytes(machine, 2) + Bytes(2, 2) + std::string(12, '\0') + Bytes(optional.size(), 2) +
         Bytes(0x0102, 2) + optional + section(".text", 16, data) + section(".rsrc", 8, data + 16) +
         std::string(32, 'x');
}

const std::string kPe32 = Pe(0x014C, 0x010B, 96);
const std::string kPe64 = Pe(0x8664, 0x020B, 112);

std::string Elf(std::size_t word) {
  const bool is64 = word == 8;
  const std::size_t header = is64 ? 64 : 52;
  const std::size_t entry = is64 ? 56 : 32;
  const std::size_t data = header + entry;
  const auto address = [word](std::size_t number) { return Bytes(number, word); };
  std::string segment = Bytes(1, 4) + (is64 ? Bytes(5, 4) : "") + address(data) + address(0) +
                        address(0) + address(8);
  segment.resize(entry);
  return "\x7F"
         "ELF" +
         Bytes(is64 ? 2 : 1, 1) + Bytes(0x0101, 2) + std::string(9, '\0') + Bytes(3, 2) +
         Bytes(is64 ? 62 : 3, 2) + Bytes(1, 4) + address(data) + address(header) +
         address(data + 8) + Bytes(0, 4) + Bytes(header, 2) + Bytes(entry, 2) + Bytes(1, 2) +
         Bytes(4, 2) + Bytes(2, 2) + Bytes(0, 2) + segment + std::string(16, 'x');
}

const std::string kElf32 = Elf(4);
const std::string kElf64 = Elf(8);

std::string WhyNot(const std::string& content) {
  WriteFile("program", content);
  return WhyNotAProgram("program");
}

TEST(ProgramFile, AcceptsWholeProgramsAndScripts) {
  const test::TemporaryFolder folder;
  for (const std::string& program : {kPe32, kPe64, kElf32, kElf64}) {
    EXPECT_EQ(WhyNot(program), "");
    EXPECT_EQ(WhyNot(program + "more"), "");
    // Each byte that is missing, however the file came to lack it.
    for (std::size_t size = program.size(); size-- > 0;) {
      fs::resize_file("program", size);
      EXPECT_NE(WhyNotAProgram("program"), "") << size << " of " << program.size();
    }
  }
  EXPECT_EQ(WhyNot("#!/bin/sh\nexit"), "");
  EXPECT_EQ(WhyNot("#! /bin/sh"), "");
  EXPECT_EQ(WhyNotAProgram(VELMORA_PUBLISH), "");
}

TEST(ProgramFile, SaysWhatTheFileIsInstead) {
  const test::TemporaryFolder folder;
  const std::size_t header32 = 64 + 24;
  const std::size_t sections = header32 + 136;
  const struct {
    const std::string& program;
    std::size_t at;
    std::string bytes;
    const char* why;
  } changes[] = {
      {kPe32, 60, Bytes(0xFFFFFFF0, 4),
       "cut off: its header ends at byte 4294967304, the file has"},
      {kPe32, 64, "NE", "a program of DOS"},
      {kPe32, 68, Bytes(0xAA64, 2), "a program for another processor, machine 0xAA64"},
      {kPe32, 68, Bytes(0x8664, 2), "damaged"},  // with the header of the other
      {kPe64, 68, Bytes(0x014C, 2), "damaged"},
      {kPe32, 70, Bytes(0, 2), "damaged"},
      {kPe32, 70, Bytes(97, 2), "damaged"},
      {kPe32, 70, Bytes(96, 2), "cut off: its header ends at byte 4064"},
      {kPe32, 84, Bytes(95, 2), "damaged"},
      {kPe32, 84, Bytes(0xFFFF, 2), "cut off: its header"},
      {kPe32, 86, Bytes(0x2102, 2), "a library"},
      {kPe32, 86, Bytes(0x0100, 2), "damaged"},
      {kPe32, header32 + 68, Bytes(1, 2), "neither a program with a window nor"},
      {kPe32, header32 + 68, Bytes(3, 2), ""},
      {kPe32, header32 + 128, Bytes(0xFFFFFFFF, 4), "cut off: its signature"},
      {kPe32, header32 + 92, Bytes(4, 4), ""},  // no signature
      {kPe32, sections + 40 + 16, Bytes(17, 4), "cut off: section .rsrc ends at byte 337"},
      {kPe32, sections + 20, Bytes(0xFFFFFFFF, 4), "cut off: section .text"},
      {kPe32, sections + 16, Bytes(0xFFFFFFFF, 8), ""},  // nothing but zeros, not in the file
      {kElf64, 4, Bytes(3, 1), "a program for another processor"},
      {kElf64, 5, Bytes(2, 1), "a program for another processor"},
      {kElf64, 16, Bytes(1, 2), "not a program, but something to link"},
      {kElf64, 18, Bytes(8, 2), "a program for another processor, machine 0x0008"},
      {kElf64, 24, Bytes(0, 8), "a library"},
      {kElf64, 32, Bytes(~0ULL, 8), "cut off: its header ends at byte 18446744073709551615"},
      {kElf64, 40, Bytes(0, 8), ""},  // no table of sections
      {kElf64, 54, Bytes(32, 2), "damaged"},
      {kElf64, 56, Bytes(0, 2), "damaged"},
      {kElf64, 56, Bytes(0xFFFF, 2), "damaged"},
      {kElf64, 64, Bytes(2, 4), "damaged"},  // nothing is loaded
      {kElf64, 64 + 8, Bytes(~0ULL, 8), "cut off: a segment"},
      {kElf64, 64 + 32, Bytes(~0ULL, 8), "cut off: a segment"},
      {kElf32, 52 + 16, Bytes(25, 4), "cut off: a segment ends at byte 109, the file has 100"},
      {kElf32, 52 + 8, Bytes(~0ULL, 8), ""},  // addresses in memory
  };
  for (const auto& [program, at, bytes, why] : changes) {
    std::string changed = program;
    const std::string found = WhyNot(changed.replace(at, bytes.size(), bytes));
    EXPECT_TRUE(*why == '\0' ? found.empty() : found.starts_with(why)) << at << ": " << found;
  }

  const std::pair<std::string, const char*> others[] = {
      {"", "empty"},
      {"\r\n<!DocType html>", "a web page"},
      {"\xEF\xBB\xBF<html>", "a web page"},
      {"MAIN", "a text"},
      {"#!sh", "a text"},
      {"#!/bin/sh\r\n", "a script with CR LF"},
      {"version https://git-lfs.github.com/spec/v1\n", "a Git LFS pointer"},
      {std::string("PK\x03\x04\0", 5), "a ZIP archive"},
      {std::string(600, '\0'), "zeros"},
      {"\x01\x02", "neither PE nor ELF"}};
  for (const auto& [content, why] : others) EXPECT_TRUE(WhyNot(content).starts_with(why)) << why;
  EXPECT_EQ(WhyNotAProgram("none"), "it can't be read");
  EXPECT_EQ(WhyNotAProgram("."), "it can't be read");
}

// Each finding's line and rule, in any order.
using Found = std::multiset<std::pair<std::size_t, Rule>>;

Found FoundIn(const std::vector<LintFinding>& findings) {
  Found found;
  for (const LintFinding& finding : findings) found.emplace(finding.line, finding.rule->id);
  return found;
}

TEST(LintSettings, EveryRuleFindsItsLineAndNothingElse) {
  const test::TemporaryFolder folder;
  const std::string head = "[Setting]\n";
  const std::string server = head + "ServerAddress=h\nData=/game\n";
  const std::string mirror = head + "BaseURL1=http://h/game\n";
  const struct {
    Found expected;
    std::vector<std::string> texts;  // with just these findings
  } cases[] = {
      {{},
       {server, mirror,
        "; remark\r\n\r\n[ setting ]\r\nSERVERADDRESS = \"h.example:65535\"\r\ndata='game'\r\n",
        server + "Information=https://h/page.html\nFTPUserName=u\nFTPPassword=p\nGameServer=g\n"
                 "DataFile=hashlist.dat\n",
        server + "#ServerAdress=x\n//Dat\n;Dat\n[Other]\nData=x\nServerAddres=\n",
        head + "ServerAddress=http://unused/\nBaseURL1=http://h:8080/other\n"
               "BaseURL2=HTTP://m/game\n",
        server + "Information=http://h/" + std::string(246, 'i') + "\n"}},
      {{{0, kNoServer}, {0, kOtherDataPath}},
       {"", head, "ServerAddres\n", "[Setting\n", head + "ServerAddress=\nBaseURL1=\n",
        head + "; ServerAddress=h\n"}},
      {{{0, kNoServer}}, {head + "Data=/game"}},
      {{{2, kNotAServerAddress}},
       {head + "ServerAddress=http://h\nData=/game\n", head + "ServerAddress=h/game\nData=/game\n",
        head + "ServerAddress=h ; main\nData=/game\n", head + "ServerAddress=u@h\nData=/game\n",
        head + "ServerAddress=\x83\x5C:80\nData=/game\n"}},
      {{{2, kNotAPort}},
       {head + "ServerAddress=h:\nData=/game\n", head + "ServerAddress=h:0\nData=/game\n",
        head + "ServerAddress=h:65536\nData=/game\n", head + "ServerAddress=h:8O\nData=/game\n",
        head + "ServerAddress=h: 80\nData=/game\n",
        head + "ServerAddress=h:4294967376\nData=/game\n"}},
      {{{4, kMirrorBehindGap}, {5, kMirrorBehindGap}},
       {mirror + "BaseURL2=\nBaseURL3=http://h/c\nBaseURL10=http://h/j\n"}},
      {{{4, kMirrorBehindGap}}, {server + "BaseURL2=http://h/game\n"}},
      {{{3, kMirrorOverLimit}}, {mirror + "BaseURL11=http://h/game\n"}},
      {{{3, kNotAMirror}},
       {mirror + "BaseURL2=h/game\n", mirror + "BaseURL2=http:///game\n",
        mirror + "BaseURL2=https://h/game\n", mirror + "BaseURL2=http://u:p@h/game\n",
        mirror + "BaseURL2=http://h:99999/game\n", mirror + "BaseURL2=http://h:/game\n",
        mirror + "BaseURL2=http://h/game?x\n", mirror + "BaseURL2=http://a b/game\n"}},
      {{{4, kMisspelledKey}},
       {server + "Data : /game\n", server + "ServerAdress=h\n", server + "BaseURL=http://h\n",
        server + "BaseURL01=http://h\n", server + "dta\n", server + "Base-URL1=http://h\n"}},
      {{{4, kUnknownKey}}, {server + "Title=Velmora\n", server + "no key at all\n"}},
      {{{1, kKeyElsewhere}, {7, kKeyElsewhere}},
       {"DataFile=hashlist.dat\n[SETTING]\nServerAddress=h\nData=/game\n[Other]\n[setting]\n"
        "ServerAddress=h\n"}},
      {{{2, kKeyElsewhere}, {0, kNoServer}},
       {"[Settings]\nServerAddress=h\n[Setting]\nData=/game"}},
      {{{4, kSameKey}}, {server + "DATA=/game\n"}},
      {{{4, kSettingTooLong}}, {server + "GameServer=" + std::string(256, 'g') + "\n"}},
      {{{3, kOtherDataPath}}, {head + "ServerAddress=h\nData=/gmae\n"}},
      {{{2, kOtherDataPath}},
       {head + "BaseURL1=http://h/gmae\nBaseURL2=http://m/gmae\nData=/game\n"}},
      {{{4, kOtherListName}}, {server + "DataFile=list.dat\n"}},
      {{{3, kNotARequestPath}, {3, kOtherDataPath}},
       {head + "ServerAddress=h\nData=http://h/game\n", head + "ServerAddress=h\nData=\\game\n",
        head + "ServerAddress=h\nData=/game#1\n",
        head + "ServerAddress=h\nData=/game/hashlist.dat\n"}},
      {{{4, kNotARequestPath}, {4, kOtherListName}}, {server + "DataFile=hashlist.dat?1\n"}},
      {{{1, kByteOrderMark}},
       {"\xEF\xBB\xBF" + server, std::string("\xFF\xFE[\0S\0", 6), "\xFE\xFF"}},
      {{{4, kInformationNotAUrl}}, {server + "Information=www.example.com\n"}},
      {{{3, kDoubleSlash}}, {head + "ServerAddress=h\nData=/game/\n"}},
      {{{2, kDoubleSlash}}, {head + "BaseURL1=http://h/game/\n"}},
      {{{4, kDoubleSlash}, {4, kOtherListName}}, {server + "DataFile=/hashlist.dat\n"}},
  };
  std::set<Rule> seen;
  for (const auto& [expected, texts] : cases) {
    for (const auto& [line, rule] : expected) seen.insert(rule);
    for (const std::string& text : texts) {
      WriteFile("VelmoraUpdate.dat", text);
      const auto findings = LintWithoutList(
          {.dataPath = "/game", .settings = "VelmoraUpdate.dat", .listName = "hashlist.dat"});
      EXPECT_EQ(FoundIn(findings), expected) << text;
      for (const LintFinding& finding : findings) EXPECT_EQ(finding.file, "VelmoraUpdate.dat");
    }
  }
  for (const LintRule& rule : LintRules()) {
    EXPECT_TRUE(ScopeOf(rule.id) != RuleScope::kSettings || seen.contains(rule.id)) << rule.what;
  }
  EXPECT_EQ(FoundIn(LintWithoutList({.settings = "."})), (Found{{0, kNoServer}}));
}

TEST(LintStart, ClientIsFoundByItsBackslash) {
  const struct {
    const char* client;
    std::vector<std::string> paths;
    const char* found;  // number and proposal
  } cases[] = {
      {"\\Game.exe", {"GAME.exe"}, ""},
      {"\\bin\\Game.exe", {"bin\\game.exe"}, ""},
      {"", {"Game.exe"}, ""},
      {"Game.exe", {"a", "GAME.exe"}, "730 is \\GAME.exe meant?"},
      {"bin\\Game.exe", {"bin\\Game.exe"}, "730 is \\bin\\Game.exe meant?"},
      {"",
       {"velmoraclient.exe"},
       "730 which patchers start if the list names none; is \\velmoraclient.exe meant?"},
      {"Game.exe", {"bin\\Game.exe"}, "731 is \\bin\\Game.exe meant?"},
      {"\\Game.exe", {"bin\\Game.dll"}, "731 "},
      {"..\\Game.exe", {"a"}, "731 "},
  };
  for (const auto& [client, paths, expected] : cases) {
    std::vector<TreeFile> files;
    for (const std::string& path : paths) files.push_back({"none", path});
    std::string found;
    for (const LintFinding& finding : LintStart(files, client, {})) {
      found += std::to_string(finding.rule->Number()) + " " + finding.detail;
    }
    EXPECT_EQ(found, expected) << client;
  }
}

TEST(LintStart, TreeIsCheckedAlongWithTheList) {
  const test::TemporaryFolder folder;
  const std::string hash(40, 'A');
  const auto file = [&](const std::string& path) {
    return "FILE : " + path + ", " + hash + ", 1, " + hash + ", 1\n";
  };
  WriteFile("tree/Game.exe", "x");
  const LintOptions options{.tree = "tree"};
  const std::pair<std::string, Found> clients[] = {
      {"EXE : \\Game.exe\n" + file("game.exe"), {}},
      {"EXE : \\Game.exe\n" + file("a"), {{1, kClientNotListed}}},
      {"EXE : \\New.exe\n" + file("New.exe"), {}},
      {"EXE : \\None.exe\n" + file("a"), {{1, kNoSuchClient}}},  // and not once more as unlisted
      {"EXE : Game.exe\n" + file("a"), {{1, kClientOfFolderAbove}}},
      {file("VelmoraClient.exe"), {{0, kClientOfFolderAbove}}}};
  for (const auto& [list, expected] : clients) {
    EXPECT_EQ(FoundIn(LintList(list, options)), expected) << list;
  }
  // Without a tree, only what the list shows.
  EXPECT_EQ(FoundIn(LintList("EXE : A.exe\n" + file("a"), {})), Found{});
  EXPECT_EQ(FoundIn(LintList("EXE : a\n" + file("a"), {})), (Found{{1, kClientOfFolderAbove}}));

  // The settings' own path makes requests as long as they get.
  WriteFile("tree/velmoraUPDATE.exe", "<html>");
  WriteFile("tree/VelmoraUpdate.dat",
            "[Setting]\nBaseURL1=http://h/short\nBaseURL2=http://h/" + std::string(100, 'd'));
  const std::string list = file(std::string(160, 'p'));
  EXPECT_EQ(FoundIn(LintList(list, options)),
            (Found{{0, kPatcherNotAProgram}, {1, kRequestTooLong}}));
  EXPECT_EQ(FoundIn(LintList(list, {.dataPath = "/short", .tree = "tree"})),
            (Found{{0, kPatcherNotAProgram}}));
  EXPECT_EQ(FoundIn(LintList(list, {.settings = "tree/VelmoraUpdate.dat"})),
            (Found{{1, kRequestTooLong}}));
}

TEST(BuildStart, ErrorsStopTheBuildUnlessTheyAreAccepted) {
  const test::TemporaryFolder folder;
  WriteFile("tree/Game.exe", "x");
  WriteFile("tree/VelmoraUpdate.exe", "");
  WriteFile("tree/VelmoraUpdate.dat", "[Setting]\nServerAddress=http://h\nData=/d\nTitle=x\n");
  BuildOptions options;
  options.tree = "tree";
  options.output = "out";
  options.clientExe = "None.exe";
  options.dataPath = "/game";
  options.listName = "list.dat";
  try {
    BuildPublication(options);
    ADD_FAILURE();
  } catch (const PublishError& error) {
    EXPECT_EQ(
        error.what(),
        std::string(
            "nothing is published, for 5 reasons:\n"
            "  --exe: client that isn't in the tree: None.exe; name a program of the tree, with a "
            "backslash in front: \\Game.exe; --accept 731 allows it\n"
            "  tree/VelmoraUpdate.dat: settings with another list: DataFile (\"hashlist.dat\", not "
            "\"list.dat\"); correct DataFile, or give --list as it is meant; --accept 722 allows "
            "it\n"
            "  tree/VelmoraUpdate.dat:2: ServerAddress that isn't HOST or HOST:PORT: ServerAddress "
            "(patchers look for the host \"http\"); write the host alone, and the path as Data; "
            "--accept 711 allows it\n"
            "  tree/VelmoraUpdate.dat:3: settings with another data path: Data (\"/d\", not "
            "\"/game\"); correct Data or the mirror's path, or give --data as it is meant; "
            "--accept 721 allows it\n"
            "  tree/VelmoraUpdate.exe: patcher that isn't a program (empty); publish a whole "
            "program of Windows (i386 or x86-64) or Linux, or a script; --accept 701 allows it"));
  }
  EXPECT_FALSE(fs::exists("out"));
  const std::string command = "build tree out --list list.dat --accept 722,711 --accept 701 ";
  const std::string unknown =
      "velmora-publish: warning: tree/VelmoraUpdate.dat:4: key that patchers "
      "don't read: Title; remove it, unless another program reads it; "
      "--accept 717 silences this\n";
  std::string result = test::RunPublish(command + "--exe Game.exe --data d/ 2>&1 >output");
  EXPECT_EQ(result,
            "0: velmora-publish: warning: --exe: client of the folder above: Game.exe (is "
            "\\Game.exe meant?); put a backslash in front, unless the folder above is meant; "
            "--accept 730 silences this\n" +
                unknown);
  result = test::RunPublish(command + "--exe /Game.exe --accept 717 2>&1 >output");
  EXPECT_EQ(result, "0: ");
  EXPECT_TRUE(test::ReadFile("out/list.dat").starts_with("EXE : \\Game.exe\n"));
  EXPECT_TRUE(test::RunPublish(command + "--accept 303 2>&1")
                  .starts_with("2: velmora-publish: --accept: rule 303 can't be accepted"));
  // What it costs players can be told all the same.
  EXPECT_TRUE(test::RunPublish("diff out/list.dat tree 2>&1").starts_with("0: "));

  result = test::RunPublish("lint --tree tree --list list.dat");
  EXPECT_NE(result.find("tree/VelmoraUpdate.exe: error 701: patcher that isn't a program: "
                        "VelmoraUpdate.exe (empty)\n"),
            std::string::npos)
      << result;
  EXPECT_TRUE(result.ends_with("\n3 errors, 1 warning\n")) << result;
  WriteFile("tree/.publishlint", "701 # a\n711 ServerAddress # b\n717 # c\n722 # d\n303 # e\n");
  EXPECT_EQ(test::RunPublish("lint --tree tree --list list.dat"),
            "0: 0 errors, 0 warnings; 4 accepted\n");
  const std::string plain = "build tree out --list list.dat --exe /Game.exe --data d 2>&1";
  result = test::RunPublish(plain);
  EXPECT_TRUE(result.starts_with("0: ") && result.ends_with("\nfindings accepted: 4\n")) << result;
  WriteFile("tree/.publishlint", "701\n");
  EXPECT_EQ(
      test::RunPublish(plain),
      "1: velmora-publish: tree/.publishlint:1: no reason: end the line with # and why this is "
      "accepted\n");
  result = test::RunPublish("lint --json --settings tree/VelmoraUpdate.dat --accept 711");
  EXPECT_TRUE(result.starts_with("3: ")) << result;
  EXPECT_NE(result.find("\"file\": \"tree/VelmoraUpdate.dat\""), std::string::npos) << result;
}

}  // namespace
}  // namespace velmora::publish
