// A whole start while one operation after the other fails, and while the process is killed at one
// change of the disk after the other. Whatever happens: the chain of processes ends by itself, the
// player is told, and one undisturbed start brings the installation into line.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "engine/install.h"
#include "engine/verify_cache.h"
#include "process/hand_over.h"
#include "support/faults.h"
#include "support/loopback_server.h"
#include "support/patcher_process.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;

constexpr char kPatcher[] = "VelmoraUpdate.exe";
constexpr char kCopy[] = "_VelmoraUpdate.exe";
constexpr char kSettings[] = "VelmoraUpdate.dat";
constexpr char kDirectory[] = "(directory)";
constexpr int kKilled = 1000 + SIGKILL;  // as PatcherProcess::Wait returns it

// Every operation on the log is struck, and each operation with each of its errors.
const bool isExhaustive = std::getenv("VELMORA_ALL_FAULTS") != nullptr;

// Long enough for its writes and its memory to count.
std::string Content(const std::string& name) {
  std::string content;
  while (content.size() < 6000) content += name + " of the game\n";
  return content;
}

// What the server holds, what is on the player's disk before, and what must be there afterwards.
struct Publication {
  Files served;  // by request path
  Files before;
  Files after;
  std::string cache;

  void Publish(const std::string& path, const std::string& content, const std::string& request) {
    served["/hashlist.dat"] += FileLine(path, content);
    served[request] = content;
    after[request.substr(1)] = content;
  }
};

Publication AllKindsOfRecords() {
  Publication game;
  game.Publish("changed.dat", Content("changed"), "/changed.dat");
  game.Publish("empty.dat", "", "/empty.dat");
  game.Publish("good.dat", Content("good"), "/good.dat");
  game.Publish("new\\deep\\plain.dat", Content("plain"), "/new/deep/plain.dat");
  game.Publish("vouched.dat", Content("vouched"), "/vouched.dat");
  game.served["/hashlist.dat"] +=
      CompressedLine("packed.dat", Content("packed")) +
      "DEL : old.dat\r\nDEL : oldfolder\r\nDEL : *.tmp, R\r\nEXE : \\Game.exe\r\n";
  game.served["/packed.dat.compressed"] = Compressed(Content("packed"));
  game.after["packed.dat"] = Content("packed");
  for (const char* folder : {"kept", "new", "new/deep"}) game.after[folder] = kDirectory;
  game.before = {{"changed.dat", Content("what was")},
                 {"good.dat", Content("good")},
                 {"player.cfg", "the player's own"},
                 {"old.dat", "old"},
                 {"oldfolder/below/a.dat", "old"},
                 {"oldfolder/b.dat", "old"},
                 {"kept/c.tmp", "old"},
                 {"kept/own.txt", "own"}};
  game.after["player.cfg"] = "the player's own";
  game.after["kept/own.txt"] = "own";
  // The cache vouches for a file that is missing, and knows an earlier edition of another.
  game.cache = CacheEntry("changed.dat", Content("what was")) +
               CacheEntry("good.dat", Content("good")) +
               CacheEntry("vouched.dat", Content("vouched"));
  return game;
}

// A new settings file or a new patcher, with which the program starts again.
Publication NewEdition(const std::string& path, const std::string& content) {
  Publication game;
  game.Publish("later.dat", Content("later"), "/later.dat");
  game.Publish(path, content, "/" + fs::path(path).filename().string());
  return game;
}

// Everything in the working directory but the log and the cache.
Files Tree() {
  Files tree = FilesHere();
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(".")) {
    if (entry.is_directory()) {
      tree[entry.path().lexically_relative(".").generic_string()] = kDirectory;
    }
  }
  return tree;
}

bool IsLogOfWholeLines() {
  std::istringstream log(ReadFile("session.log"));
  for (std::string line; std::getline(log, line);) {
    const bool isWhole = line.size() > 22 && line[0] == '[' && line[20] == ']' && !log.eof() &&
                         line.back() == '\r' && line.find("] [2") == std::string::npos;
    if (!isWhole) return false;
  }
  return true;
}

std::unique_ptr<PatcherProcess> StartPatcher() {
  auto patcher =
      std::make_unique<PatcherProcess>("./VelmoraUpdate.exe", std::vector<std::string>{});
  patcher->Send("wait\nwait\nclose");  // a new patcher goes on with the script
  patcher->EndInput();
  return patcher;
}

// The one undisturbed start that has to be enough, with the cache as the disturbed one left it.
void ExpectHealing(const Publication& game) {
  const auto patcher = StartPatcher();
  EXPECT_EQ(patcher->Wait(), 0);
  EXPECT_TRUE(Tree() == game.after) << patcher->errors() << ReadFile("session.log");
  EXPECT_TRUE(IsLogOfWholeLines());
  const auto log = LogMessages();
  EXPECT_TRUE(!log.empty() && log.back() == "Deleted temporary files.");
}

// A kind of operation, and what can happen to it.
class FaultyStart : public testing::TestWithParam<std::pair<std::string, std::vector<int>>> {
 protected:
  FaultyStart()
      : server_([this](const ServedRequest& request) {
          return LoopbackServer::Serving(game_.served)(request);
        }) {
    WriteFile("plan", std::string(sizeof(FaultPlan), '\0'));
    const int file = open("plan", O_RDWR | O_CLOEXEC);
    plan_ = static_cast<FaultPlan*>(
        mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    close(file);
    fs::create_directory("installation");
    fs::current_path("installation");
  }
  ~FaultyStart() override { munmap(plan_, sizeof(FaultPlan)); }

  // They name the server, so they are made when it listens.
  [[nodiscard]] std::map<std::string, Publication> Publications() const {
    const auto settings = [this](const std::string& edition) {
      return "; " + edition +
             "\r\n[Setting]\r\nServerAddress=127.0.0.1:" + std::to_string(server_.port()) + "\r\n";
    };
    std::map<std::string, Publication> all = {
        {"everything", AllKindsOfRecords()},
        {"new settings", NewEdition("./VelmoraUpdate.dat", settings(Content("new")))},
        {"new patcher", NewEdition(kPatcher, program_ + "next edition")}};
    for (auto& [name, game] : all) {
      game.before.emplace(kSettings, settings("first"));
      game.after.emplace(kSettings, game.before[kSettings]);
      game.after.emplace(kPatcher, program_);
    }
    return all;
  }

  void Install(const Publication& game) {
    game_ = game;
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry.path());
    fs::copy_file(VELMORA_FAULTY_PROGRAM, kPatcher);
    for (const auto& [name, content] : game.before) WriteFile(name, content);
    if (!game.cache.empty()) WriteFile(kCacheFile, game.cache);
  }

  // Starts the chain with one fault, in the operation of that number.
  [[nodiscard]] std::unique_ptr<PatcherProcess> StartWith(const std::string& operation, int effect,
                                                          std::uint32_t number) const {
    new (plan_) FaultPlan{};
    operation.copy(plan_->operation, sizeof plan_->operation - 1);
    fs::current_path().string().copy(plan_->folder, sizeof plan_->folder - 1);
    plan_->effect = effect;
    plan_->number = number;
    plan_->logStride = isExhaustive ? 1 : 5;
    setenv(kFaultPlan, fs::absolute("../plan").c_str(), 1);
    auto patcher = StartPatcher();
    unsetenv(kFaultPlan);
    return patcher;
  }

  void ExpectOrderlyEnd(const PatcherProcess& patcher) const {
    const std::string struck = plan_->struckOperation;
    const bool isExec = struck.starts_with("exec");
    EXPECT_TRUE(IsLogOfWholeLines()) << ReadFile("session.log");
    const Files tree = Tree();
    const bool isUpToDate = std::ranges::includes(tree, game_.after);
    // A launch or a run that doesn't start isn't told.
    const bool mayBeSilent = isUpToDate || isExec || struck.starts_with("thread");
    EXPECT_TRUE(mayBeSilent || !patcher.errors().empty()) << "the player isn't told";
    const bool mayLeaveCopy = struck.find(kCopy) != std::string::npos || isExec;
    EXPECT_TRUE(mayLeaveCopy || !fs::exists(kCopy));
    for (const auto& [name, content] : tree) {
      const bool isKnown = game_.before.contains(name) || game_.after.contains(name);
      const bool isStruck = name == kUnfinishedFolders && struck.ends_with(kUnfinishedFolders);
      EXPECT_TRUE(isKnown || name == kCopy || content == kDirectory || isStruck)
          << name << " is left";
    }
  }

  TemporaryFolder folder_;
  const std::string program_ = ReadFile(VELMORA_FAULTY_PROGRAM);
  Publication game_;
  LoopbackServer server_;
  FaultPlan* plan_ = nullptr;
};

// Strikes the operations of the kind one by one, from the first to the last of a run, with all
// their effects or with one in turn.
TEST_P(FaultyStart, EndsAndHeals) {
  const auto& [operation, effects] = GetParam();
  const bool kills = effects[0] == kKill || effects[0] == kKillHalf;
  const bool onlyReads = operation == "open" || operation == "read" || operation == "status";
  const auto effectsOfEach = static_cast<std::uint32_t>(isExhaustive ? effects.size() : 1);
  for (const auto& [name, game] : Publications()) {
    // New editions differ in what is written of them, and from each other in what a kill leaves.
    const bool differs = name == "everything" || kills || (name == "new patcher" && !onlyReads);
    if (!differs && !isExhaustive) continue;
    for (std::uint32_t runs = 0;; ++runs) {
      Install(game);
      const std::uint32_t number = runs / effectsOfEach + 1;
      const int effect = effects[runs % effects.size()];
      const auto patcher = StartWith(operation, effect, number);
      const int status = patcher->Wait();
      SCOPED_TRACE(testing::Message() << name << ", number " << number << ", effect " << effect
                                      << ": " << plan_->struckOperation);
      const bool isStruck = plan_->struck != 0;
      // A restart that can't be launched leaves its exit status for whoever waits.
      const bool mayRestart = operation == "exec" && status == (kExitRestart & 0xFF);
      EXPECT_TRUE(mayRestart || status == (isStruck && kills ? kKilled : 0)) << status;
      if (!isStruck) break;
      if (!kills) ExpectOrderlyEnd(*patcher);
      ExpectHealing(game);
    }
  }
}

const auto operationName = [](const auto& kind) { return kind.param.first; };

INSTANTIATE_TEST_SUITE_P(Faults, FaultyStart,
                         testing::ValuesIn(std::vector<FaultyStart::ParamType>{
                             {"open", {ENOENT, EACCES, EMFILE}},
                             {"read", {EIO, kHalf}},
                             {"write", {ENOSPC, kHalf}},
                             {"close", {EIO}},
                             {"unlink", {EACCES}},
                             {"rmdir", {EBUSY}},
                             {"mkdir", {ENOSPC}},
                             {"rename", {EACCES}},
                             {"ftruncate", {EIO}},
                             {"chmod", {EPERM}},
                             {"status", {EACCES}},
                             {"memory", {ENOMEM}},
                             {"thread", {EAGAIN}},
                             {"exec", {ENOENT}}}),
                         operationName);

INSTANTIATE_TEST_SUITE_P(Kills, FaultyStart,
                         testing::ValuesIn(std::vector<FaultyStart::ParamType>{
                             {"change", {kKill}}, {"write", {kKillHalf}}}),
                         operationName);

}  // namespace
}  // namespace velmora::test
