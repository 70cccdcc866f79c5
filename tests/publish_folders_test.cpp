// What the publisher's tool does with whole publications.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "publish/build/new_file.h"
#include "publish/build/prune.h"
#include "publish/build/publication.h"
#include "publish/build/publication_link.h"
#include "publish/build/staging.h"
#include "publish/common/publish_error.h"
#include "publish/common/redirection.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;
using test::Files;
using test::ReadFile;
using test::WriteFile;
using Names = std::set<std::string>;

bool hasHardLinks = true;

class PublishFolders : public testing::Test {
 protected:
  PublishFolders() {
    options_.tree = "tree";
    options_.output = "out";
    options_.payload.compress = Compress::kNever;
    options_.maxRemovedPercent = 100;
  }
  ~PublishFolders() override { hasHardLinks = true; }

  BuildSummary Build(const std::string& folder) {
    options_.output = folder;
    return BuildPublication(options_);
  }
  // Why nothing is published; empty if something is.
  static std::string Refusal(const BuildOptions& options) try {
    BuildPublication(options);
    return {};
  } catch (const PublishError& error) {
    return error.what();
  }
  static Files FilesIn(const std::string& folder) {
    Files files;
    for (const auto& [path, content] : test::FilesHere()) {
      if (path.starts_with(folder + "/")) files[path.substr(folder.size() + 1)] = content;
    }
    return files;
  }
  static Names Shared(const std::string& folder, const std::string& other) {
    Names shared;
    for (const auto& [path, content] : FilesIn(folder)) {
      const fs::path there = fs::path(other) / path;
      if (fs::exists(there) && fs::equivalent(fs::path(folder) / path, there)) shared.insert(path);
    }
    return shared;
  }

  test::TemporaryFolder folder_;
  BuildOptions options_;
};

// The other publication stays as it is, whatever is found there.
TEST_F(PublishFolders, ReusesPayloadsOfAnotherPublication) {
  const std::string text(100000, 'x');
  for (const char* path : {"same", "sub/same", "changed", "damaged", "gone", "own"}) {
    WriteFile(std::string("tree/") + path, path + text);
  }
  options_.payload.compress = Compress::kAlways;
  Build("old");
  WriteFile("tree/changed", "CHANGED" + text);
  WriteFile("old/damaged.compressed", std::string(fs::file_size("old/damaged.compressed"), 'x'));
  fs::remove("old/gone.compressed");
  const Files old = FilesIn("old");
  Build("fresh");
  options_.reuse = "old";
  for (const bool links : {true, false}) {
    hasHardLinks = links;
    fs::remove_all("out");
    EXPECT_EQ(Build("out").reused, 3U);
    EXPECT_EQ(FilesIn("out"), FilesIn("fresh"));
    EXPECT_EQ(
        Shared("out", "old"),
        links ? (Names{"own.compressed", "same.compressed", "sub/same.compressed"}) : Names{});
    EXPECT_EQ(FilesIn("old"), old);
  }
  // What is there already stays.
  fs::remove("out/same.compressed");
  EXPECT_EQ(Build("out").reused, 1U);
  // What was made with other settings isn't reused, nor what is no publication.
  options_.payload.compress = Compress::kNever;
  const BuildSummary summary = Build("other");
  EXPECT_EQ(summary.reused, 0U);
  EXPECT_FALSE(summary.canReuse);
  EXPECT_EQ(FilesIn("old"), old);
  options_.reuse = "tree";
  EXPECT_NE(Refusal(options_).find("--list NAME"), std::string::npos);
}

TEST_F(PublishFolders, NewFileLeavesOtherNamesOfTheOldOneAlone) {
  WriteFile("payload", "old");
  fs::create_hard_link("payload", "staged");
  NewFile("staged").Commit();
  EXPECT_EQ(ReadFile("payload"), "old");
}

TEST_F(PublishFolders, ReusedPublicationIsTheEarlierOne) {
  for (const char* path : {"tree/a", "tree/b", "tree/c"}) WriteFile(path, "x");
  Build("old");
  fs::remove("tree/a");
  options_.maxRemovedPercent = 25;
  options_.output = "out";
  EXPECT_EQ(Refusal(options_), "");
  // Compared with that one, the tree lacks much.
  fs::remove_all("out");
  options_.reuse = "old";
  EXPECT_NE(Refusal(options_).find("lacks 1 of 3 files"), std::string::npos);
}

// Two lists may share a folder as long as neither changes what the other one names.
TEST_F(PublishFolders, ListsOfOneFolderLeaveEachOthersPayloadsAlone) {
  WriteFile("tree/same", "same");
  WriteFile("tree/sub/b", "old");
  Build("out");
  options_.listName = "beta.dat";
  WriteFile("tree/new", "new");
  Build("out");
  WriteFile("tree/sub/b", "new");
  const Files before = FilesIn("out");
  const std::string refusal = Refusal(options_);
  EXPECT_NE(refusal.find("out/sub/b: another list needs it as it is: hashlist.dat"),
            std::string::npos)
      << refusal;
  EXPECT_THROW(static_cast<void>(PreviewPublication(options_)), PublishError);
  EXPECT_EQ(FilesIn("out"), before);
}

TEST_F(PublishFolders, RedirectionIsMadeCarriedAlongAndChecked) {
  const std::string url = "http://cdn.example.com/game";
  WriteFile("tree/a", "x");
  Build("old");
  struct Case {
    std::string own;     // what is there before, "" for nothing
    std::string others;  // the same for the one that is reused
    std::string asked;   // by --cdn
    bool takes;
    std::string expected;  // afterwards; or
    std::string refusal;
  };
  for (const Case& c : std::vector<Case>{
           {"", "", "", true, "(none)", ""},
           {"", "", url, true, url, ""},
           {url, "", "", true, url, ""},
           {"", url, "", true, url, ""},
           {"", url, "", false, "(none)", ""},
           {url, url + "2", "", true, url, ""},
           {url, url, url + "3", true, url + "3", ""},
           {url + "\n", "", url, true, url, ""},
           {url + "\n", "", "", true, "", "out/enable.cdn: a line end"},
           {url + "\n", "", "", false, "", "out/enable.cdn: a line end"},
           {"", "https" + url.substr(4), "", true, "", "old/enable.cdn: the scheme is https"},
           {"", "", "http://cdn.example.com:81/game", true, "", "--cdn: "}}) {
    fs::remove_all("out");
    fs::remove("old/enable.cdn");
    if (!c.own.empty()) WriteFile("out/enable.cdn", c.own);
    if (!c.others.empty()) WriteFile("old/enable.cdn", c.others);
    options_.reuse = "old";
    options_.redirection = c.asked;
    options_.takesRedirection = c.takes;
    options_.output = "out";
    const std::string refusal = Refusal(options_);
    EXPECT_NE(refusal.find(c.refusal), std::string::npos) << refusal;
    EXPECT_EQ(refusal.empty(), c.refusal.empty()) << refusal;
    if (refusal.empty()) {
      EXPECT_EQ(ReadFile("out/enable.cdn"), c.expected) << c.own << c.others;
    }
  }
}

TEST_F(PublishFolders, LinkLeadsToTheOldOrTheNewPublication) {
  WriteFile("tree/a", "x");
  WriteFile("tree/sub/b", "x");
  Build("site/1");
  WriteFile("tree/a", "new");
  Build("site/2");
  const auto switchTo = [](const std::string& publication, const fs::path& link = "site/current") {
    return SwitchLink(link, publication, "hashlist.dat");
  };
  SwitchedLink link = switchTo("site/1");
  EXPECT_EQ(std::pair(link.before, link.now), (std::pair<fs::path, fs::path>("", "1")));
  EXPECT_FALSE(link.changes);
  fs::create_symlink("nowhere", "site/current.switching");  // of a killed process
  link = switchTo("site/2", "site/current/");
  EXPECT_EQ(std::pair(link.before, link.now), (std::pair<fs::path, fs::path>("1", "2")));
  EXPECT_EQ(link.changes->changed, 1U);
  // Elsewhere, through a link, and to itself.
  fs::create_directories("x/y");
  EXPECT_EQ(switchTo("site/current", "x/y/link").now, "../../site/2");
  EXPECT_EQ(switchTo("site/current").now, "2");

  std::size_t missing = 0;
  {
    const std::jthread player([&missing](const std::stop_token& end) {
      while (!end.stop_requested()) missing += fs::exists("site/current/hashlist.dat") ? 0 : 1;
    });
    for (int i = 0; i < 30; ++i) switchTo(i % 2 == 0 ? "site/1" : "site/2");
  }
  EXPECT_EQ(missing, 0U);
}

TEST_F(PublishFolders, LinkIsNotSwitchedToWhatPlayersCannotUse) {
  WriteFile("tree/a", "x");
  WriteFile("tree/sub/b", "x");
  Build("old");
  SwitchLink("current", "old", "hashlist.dat");
  using Damage = void (*)();
  for (const auto& [reason, link, damage] :
       std::vector<std::tuple<std::string, std::string, Damage>>{
           {"out/sub/b: is missing", "current", [] { fs::remove("out/sub/b"); }},
           {"out/a: is missing, or hasn't the size", "current", [] { WriteFile("out/a", "xx"); }},
           {"hashlist.dat: there is no list", "current", [] { fs::remove("out/hashlist.dat"); }},
           {"no list", "current", [] { WriteFile("out/hashlist.dat", std::string(600, 'x')); }},
           {"out/enable.cdn: a space", "current",
            [] { WriteFile("out/enable.cdn", "http://h/d "); }},
           {"velmora-publish recover out", "current",
            [] { WriteFile("out/.publishing/journal.undo", ""); }},
           {"tree: is no symbolic link; rename it", "tree", [] {}},
           {"tree/a: is no symbolic link", "tree/a", [] {}},
           {"can't be written", "none/current", [] {}}}) {
    fs::remove_all("out");
    Build("out");
    damage();
    const Files before = test::FilesHere();
    try {
      SwitchLink(link, "out", "hashlist.dat");
      ADD_FAILURE() << reason;
    } catch (const PublishError& error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
    EXPECT_EQ(test::FilesHere(), before);
    EXPECT_EQ(fs::read_symlink("current"), "old");
  }
}

class PublishPrune : public PublishFolders {
 protected:
  // Two builds into "out": of what the first one had, the second one keeps only "stays".
  PublishPrune() {
    for (const char* path : {"stays", "d/e/gone", "d/old", "linked", ".dot", ".d/f", "spared/f"}) {
      WriteFile(std::string("tree/") + path, "old");
    }
    Build("out");
    fs::copy_file("out/hashlist.dat", "first.dat");
    fs::remove_all("tree");
    WriteFile("tree/stays", "new");
    WriteFile("tree/new", "new");
    Build("out");
    WriteFile("out/d/stranger", "x");
    WriteFile("out/enable.cdn", "http://h/d");
    fs::remove("out/linked");
    fs::create_symlink("stays", "out/linked");
    prune_.output = "out";
  }
  static Names Needless(const PruneOptions& options) {
    Names paths;
    for (const NeedlessPayload& payload : Prune(options).needless) paths.insert(payload.path);
    return paths;
  }
  PruneOptions prune_;
};

TEST_F(PublishPrune, RemovesWhatOnlyEarlierBuildsNeeded) {
  const Files before = test::FilesHere();
  const Names all = {"d/e/gone", "d/old", "spared/f"};
  EXPECT_EQ(Needless(prune_), all);
  EXPECT_EQ(Prune(prune_).bytes, 9U);
  EXPECT_EQ(Prune(prune_).others, 1U);
  for (const char* spared : {"spared", "out/spared", "spared/", "spared/f"}) {
    prune_.spare = {spared};
    EXPECT_EQ(Needless(prune_), (Names{"d/e/gone", "d/old"})) << spared;
  }
  prune_.keep = {"first.dat"};
  EXPECT_EQ(Needless(prune_), Names{});
  prune_.keep.clear();
  // A list of another name in the same folder.
  fs::copy_file("first.dat", "out/beta.dat");
  EXPECT_EQ(Needless(prune_), Names{});
  fs::remove("out/beta.dat");
  EXPECT_EQ(test::FilesHere(), before);

  prune_.deletes = true;
  prune_.output = "out/";
  EXPECT_EQ(Needless(prune_), (Names{"d/e/gone", "d/old"}));
  Files expected = before;
  for (const char* removed : {"out/d/e/gone", "out/d/old"}) expected.erase(removed);
  expected["out/.velmora-publish"] = ReadFile("out/.velmora-publish");
  EXPECT_EQ(test::FilesHere(), expected);
  EXPECT_FALSE(fs::exists("out/d/e"));
  // From now on these names aren't the tool's.
  WriteFile("out/d/old", "mine");
  EXPECT_EQ(Needless(prune_), Names{});
  prune_.spare.clear();
  EXPECT_EQ(Needless(prune_), (Names{"spared/f"}));
}

// A publication of a version that recorded no payloads: what the last list named is known.
TEST_F(PublishPrune, RecordBeginsWithTheListInTheFolder) {
  std::string record = ReadFile("out/.velmora-publish");
  WriteFile("out/.velmora-publish", record.substr(0, record.find("payload ")));
  EXPECT_EQ(Needless(prune_), Names{});
  EXPECT_EQ(Prune(prune_).others, 4U);
  fs::remove("tree/new");
  Build("out");
  EXPECT_EQ(Needless(prune_), Names{"new"});
}

TEST_F(PublishPrune, RefusesWhenItIsNotKnownWhatIsNeeded) {
  WriteFile("empty.dat", "");
  WriteFile("long.dat", ReadFile("first.dat") + std::string(600, 'x'));
  prune_.deletes = true;
  const auto refuses = [this](const std::string& reason) {
    const Files before = test::FilesHere();
    try {
      Prune(prune_);
      ADD_FAILURE() << reason;
    } catch (const PublishError& error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
    EXPECT_EQ(test::FilesHere(), before);
  };
  for (const auto& [list, reason] : Files{{"empty.dat", "names no file"},
                                          {"long.dat", "not a list"},
                                          {"tree/new", "not a list"},
                                          {"none", "can't be read"}}) {
    prune_.keep = {"first.dat", list};
    refuses(reason);
  }
  prune_.keep.clear();
  prune_.spare = {"nothing"};
  refuses("--spare nothing");
  prune_.spare.clear();
  {
    const Staging other("out");
    refuses("another build is running");
  }
  WriteFile("out/.publishing/journal", "");
  refuses("velmora-publish recover out");
  fs::remove_all("out/.publishing");
  WriteFile("out/hashlist.dat", "");
  refuses("names no file");
  fs::remove("out/hashlist.dat");
  refuses("no list");
}

TEST(Redirection, FlawsOfItsText) {
  const std::string host = "http://cdn.example.com";
  const std::string most = "/" + std::string(256, 'p');  // with "/f", 259 bytes
  for (const auto& [text, isWarning, parts] :
       std::vector<std::tuple<std::string, bool, std::vector<std::string>>>{
           {host + "/game", true, {}},
           {host + "/game-42", true, {}},
           {host, true, {}},
           {"HTTP://cdn.example.com:80" + most, true, {}},
           {"", false, {"empty"}},
           {"\xEF\xBB\xBF" + host, false, {"byte order mark"}},
           {"cdn.example.com/game", false, {"no URL"}},
           {"/game", false, {"no URL"}},
           {"http:///game", false, {"no URL"}},
           {"http://" + std::string(1000, 'h'), false, {"no URL, or one with a part"}},
           {host + "/game\n", false, {"a line end behind"}},
           {host + "/game\r\n", false, {"a line end behind"}},
           {host + "/game ", false, {"a space behind"}},
           {host + "/my game", false, {"a space inside"}},
           {host + "/\x83\x65", false, {"beyond ASCII"}},
           {host + most + "p", false, {"too long for any request"}},
           {"https://cdn.example.com/game", true, {"scheme is https"}},
           {"ftp://u:p@cdn.example.com/", true, {"scheme is ftp", "password", "slash"}},
           {host + ":8080/game?x", true, {"port is 8080", "query or fragment"}}}) {
    const std::vector<RedirectionFlaw> flaws = RedirectionFlaws(text);
    ASSERT_EQ(flaws.size(), parts.size()) << text;
    for (std::size_t i = 0; i < parts.size(); ++i) {
      EXPECT_NE(flaws[i].what.find(parts[i]), std::string::npos) << flaws[i].what;
      EXPECT_EQ(flaws[i].isWarning, isWarning) << text;
    }
  }
}

}  // namespace

// In place of the C library's, for std::filesystem as well.
extern "C" int link(const char* from, const char* to) noexcept {
  if (hasHardLinks) return linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
  errno = EXDEV;
  return -1;
}

}  // namespace velmora::publish
