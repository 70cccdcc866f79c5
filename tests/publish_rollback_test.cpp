// The way back from a bad publication, as real patchers take it.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "publish/build/publication.h"
#include "publish/build/rollback.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/lint/lint.h"
#include "publish/verify/verification.h"
#include "support/patcher_process.h"
#include "support/workspace.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;
using test::Files;
using test::ReadFile;
using test::WriteFile;

// Serves one publication at a time, and can leave one request unanswered.
class PublicationServer {
 public:
  void Offer(const fs::path& folder, const std::string& stalls = "") {
    const std::lock_guard lock(mutex_);
    folder_ = folder;
    stalls_ = stalls;
    isStalling_ = false;
  }
  bool IsStalling() {
    const std::lock_guard lock(mutex_);
    return isStalling_;
  }
  [[nodiscard]] std::string Address() const {
    return "127.0.0.1:" + std::to_string(server_.port());
  }

 private:
  test::Reply Answer(const test::ServedRequest& request) {
    const std::lock_guard lock(mutex_);
    const fs::path file = folder_ / request.path.substr(1);
    if (!fs::is_regular_file(file)) return test::Status(404);
    if (request.path != stalls_) return test::Ok(ReadFile(file));
    isStalling_ = true;
    return {"", test::Reply::End::kStall};
  }

  std::mutex mutex_;
  fs::path folder_;
  std::string stalls_;
  bool isStalling_ = false;
  test::LoopbackServer server_{[this](const auto& request) { return Answer(request); }};
};

class PublishRollback : public testing::Test {
 protected:
  PublishRollback() {
    for (const char* path : {"same", "changed", "sub/changed", "gone", "folder", "file/in"}) {
      old_[path] = std::string("old ") + path;
    }
    old_["large"] = std::string(100000, 'x');
    bad_ = old_;
    for (const char* path : {"gone", "folder", "file/in"}) bad_.erase(path);
    for (const char* path : {"changed", "sub/changed", "large", "sub/new", "folder/in", "file"}) {
      bad_[path] = std::string("bad ") + path;
    }
    build_.removals = {{"junk", "", "", "", "", false}};
    build_.clientExe = "\\same";
    Build(old_, "1");
    build_.removals = {{"saves", "", "", "", "", false}};
    build_.clientExe = "large";
    build_.removeFrom = "1";
    build_.reuse = "1";
    Build(bad_, "2");
    options_.earlier = "1";
    options_.from = {"2"};
    options_.output = "3";
  }
  void Build(const Files& files, const std::string& folder) {
    fs::remove_all("tree");
    for (const auto& [path, content] : files) WriteFile("tree/" + path, content);
    build_.tree = "tree";
    build_.output = folder;
    build_.maxRemovedPercent = 100;
    BuildPublication(build_);
  }
  static PublishedList ListOf(const std::string& folder) {
    return PublishedList(ReadFile(folder + "/hashlist.dat"));
  }
  static std::string SizeIn(const std::string& folder, const std::string& path) {
    for (const FileRecord& record : ListOf(folder).files) {
      if (record.path == path) return record.contentSize;
    }
    return "(none)";
  }

  // Starts the patcher of a player in the publication, and waits for the end of the update. If it
  // is to stall at a request, kills it there; false if that request didn't come.
  bool Start(const fs::path& player, const std::string& publication,
             const std::string& stalls = "") {
    const fs::path here = fs::current_path();
    server_.Offer(here / publication, stalls);
    fs::create_directories(player);
    fs::copy_file(VELMORA_PROGRAM, player / "VelmoraUpdate.exe", fs::copy_options::skip_existing);
    WriteFile(player / "VelmoraUpdate.dat",
              "[Setting]\r\nServerAddress=" + server_.Address() + "\r\n");
    fs::current_path(player);
    bool isKilled = false;
    {
      test::PatcherProcess patcher("VelmoraUpdate.exe", {});
      const std::string end = "Start Game button: enabled";
      while (patcher.output().find(end) == std::string::npos && !isKilled && patcher.IsRunning()) {
        patcher.Pump(10);
        isKilled = server_.IsStalling();
      }
      if (isKilled) patcher.Signal(SIGKILL);
      patcher.EndInput();
      patcher.Wait();
    }
    fs::current_path(here);
    return isKilled;
  }
  // The game's files.
  static Files FilesOf(const fs::path& player) {
    Files files;
    for (const auto& [path, content] : test::FilesHere()) {
      const std::string own = path.substr(std::min(player.native().size() + 1, path.size()));
      const bool isPatchers =
          own == "session.log" || own.find("VelmoraUpdate") != std::string::npos;
      if (path.starts_with(player.native() + "/") && !isPatchers) files[own] = content;
    }
    return files;
  }
  // What patchers request of a publication, in their order.
  static std::vector<std::string> RequestsOf(const std::string& folder) {
    std::vector<std::string> requests;
    for (const FileRecord& record : ListOf(folder).files) {
      std::string path = "/" + record.path + (record.compressed ? ".compressed" : "");
      std::replace(path.begin(), path.end(), '\\', '/');
      requests.push_back(path);
    }
    return requests;
  }

  test::TemporaryFolder folder_;
  PublicationServer server_;
  Files old_;
  Files bad_;
  BuildOptions build_;
  RollbackOptions options_;
};

// A player of the earlier publication is killed at each file of the bad one, or has all of it. Then
// comes the rollback, or a publication after it.
TEST_F(PublishRollback, EveryPlayerEndsWithExactlyTheListedFiles) {
  RollBack(options_);
  Files next = old_;
  next["changed"] = "next changed";
  build_.removeFrom = build_.reuse = "3";
  Build(next, "4");
  build_.reuse = "2";  // whose files are good after all
  build_.removeFrom = "4";
  Build(bad_, "5");

  Start("old", "1");
  EXPECT_EQ(FilesOf("old"), old_);
  std::vector<std::string> ends = RequestsOf("2");
  std::erase(ends, "/same");
  ends.emplace_back("");
  for (const std::string& end : ends) {
    for (const auto& [publication, files] : {std::pair("3", old_), std::pair("4", next)}) {
      fs::remove_all("player");
      fs::copy("old", "player", fs::copy_options::recursive);
      EXPECT_EQ(Start("player", "2", end), !end.empty());
      EXPECT_EQ(FilesOf("player") == bad_, end.empty());
      Start("player", publication);
      EXPECT_EQ(FilesOf("player"), files) << end;
    }
  }
  // Players who had nothing before.
  EXPECT_TRUE(Start("new", "2", "/changed"));
  Start("new", "3");
  EXPECT_EQ(FilesOf("new"), old_);

  // Those who were on their way back when the bad publication's files return.
  for (const char* end : {"/changed", "/sub/changed", "/gone", "/large.compressed"}) {
    fs::remove_all("player");
    Start("player", "2");
    EXPECT_EQ(FilesOf("player"), bad_);
    EXPECT_TRUE(Start("player", "3", end));
    Start("player", "5");
    EXPECT_EQ(FilesOf("player"), bad_) << end;
  }
}

// A publication between the two isn't named, but its files are in the way.
TEST_F(PublishRollback, FilesAndFoldersOfAPublicationBetweenMakeRoom) {
  Start("player", "2");
  build_.removals.clear();
  build_.removeFrom = "2";
  Build({{"same", old_["same"]}, {"large", bad_["large"]}}, "worse");
  options_.from = {"worse"};
  RollBack(options_);
  Start("player", "3");
  Files expected = old_;
  expected["sub/new"] = bad_["sub/new"];  // in nobody's way
  EXPECT_EQ(FilesOf("player"), expected);
}

TEST_F(PublishRollback, ListSaysWhatTheEarlierOneSaidAndWhatHasToGo) {
  const RollbackSummary summary = RollBack(options_);
  EXPECT_EQ(summary.files, old_.size());
  EXPECT_EQ(summary.reread, 3U);
  EXPECT_EQ(summary.notRepeated, 1U);  // of "saves", perhaps the mistake
  EXPECT_EQ(summary.changes.changed, 3U);
  const std::string list = ReadFile("3/hashlist.dat");
  EXPECT_EQ(list.substr(0, list.find("FILE")),
            "EXE : \\same\nDEL : file, R\nDEL : folder\\\nDEL : folder\\in\nDEL : junk\n"
            "DEL : sub\\new\n");
  EXPECT_EQ(SizeIn("3", "changed"), "011");
  EXPECT_EQ(SizeIn("3", "same"), "8");
  EXPECT_EQ(LintList(list, {}).size(), 0U);
  EXPECT_EQ(VerifyOrigin(FolderOrigin("3", "hashlist.dat"), {}).errors, 0U);
  EXPECT_TRUE(fs::equivalent("1/same", "3/same"));

  // Into the bad one's folder, and once more, from its list.
  fs::copy_file("2/hashlist.dat", "bad.dat");
  options_.output = "2";
  RollBack(options_);
  EXPECT_EQ(ReadFile("2/hashlist.dat"), list);
  EXPECT_EQ(VerifyOrigin(FolderOrigin("2", "hashlist.dat"), {}).errors, 0U);
  options_.earlier = "2";
  options_.from = {"bad.dat"};
  options_.output = "again";
  RollBack(options_);
  EXPECT_EQ(SizeIn("again", "changed"), "0011");
  EXPECT_EQ(SizeIn("again", "same"), "8");
}

// The zeros stay, with other settings as well, and the payloads can be used by the next build.
TEST_F(PublishRollback, BuildGoesOnFromThere) {
  RollBack(options_);
  build_.removeFrom = "3";
  build_.reuse = "3";
  const auto reused = [this](const std::string& folder) {
    Build(old_, "tried");
    build_.output = folder;
    fs::remove_all(folder);
    return BuildPublication(build_).reused;
  };
  EXPECT_EQ(reused("4"), old_.size());
  EXPECT_EQ(SizeIn("4", "changed"), "011");
  build_.payload.compress = Compress::kNever;
  EXPECT_EQ(reused("4"), 0U);
  EXPECT_EQ(SizeIn("4", "changed"), "011");
  EXPECT_EQ(SizeIn("4", "large"), "0100000");
}

TEST_F(PublishRollback, RefusesWhatWouldBeNoPublication) {
  const std::string url = "http://cdn.example.com/game";
  WriteFile("empty/hashlist.dat", "");
  WriteFile("often/hashlist.dat",
            "FILE : changed, H, 1, " + test::Sha1("x") + ", " + std::string(30, '0') + "1\n");
  using Change = void (*)(RollbackOptions&);
  for (const auto& [reason, change] : std::vector<std::pair<std::string, Change>>{
           {"1/same: is missing", [](RollbackOptions&) { fs::remove("1/same"); }},
           {"isn't what the list says",
            [](RollbackOptions&) {
              fs::remove("1/same");
              WriteFile("1/same", "OLD same");
            }},
           {"earlier publication itself", [](RollbackOptions& o) { o.output = "1/."; }},
           {"no list", [](RollbackOptions& o) { o.earlier = "tree"; }},
           {"names no file", [](RollbackOptions& o) { o.earlier = "empty"; }},
           {"not a list",
            [](RollbackOptions& o) {
              o.from = {"2", "2/changed"};
            }},
           {"other --hash", [](RollbackOptions& o) { o.from = {"often"}; }},
           {"recover 2", [](RollbackOptions&) { WriteFile("2/.publishing/journal", ""); }},
           {"can't have the name", [](RollbackOptions& o) { o.listName = "enable.cdn"; }},
           {"--cdn: ", [](RollbackOptions& o) { o.redirection = "https://h/d"; }},
           {"--cdn URL says", [](RollbackOptions&) { WriteFile("2/enable.cdn", "http://h/d"); }}}) {
    RollbackOptions options = options_;
    fs::copy("1", "1-saved", fs::copy_options::recursive);
    change(options);
    try {
      RollBack(options);
      ADD_FAILURE() << reason;
    } catch (const PublishError& error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
    EXPECT_FALSE(fs::exists("3")) << reason;
    fs::remove_all("1");
    fs::rename("1-saved", "1");
    fs::remove_all("2/.publishing");
  }
  WriteFile("1/enable.cdn", "http://h/d");
  RollBack(options_);
  EXPECT_EQ(ReadFile("3/enable.cdn"), "http://h/d");
  options_.takesRedirection = false;
  options_.output = "4";
  RollBack(options_);
  EXPECT_FALSE(fs::exists("4/enable.cdn"));
}

}  // namespace
}  // namespace velmora::publish
