// The whole chain of a start while one operation after the other fails, and while the process is
// killed at one change of the disk after the other. Whatever happened: the chain ends by itself,
// the player is told, and one undisturbed start brings the installation into line.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
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
using Files = std::map<std::string, std::string>;

constexpr char kPatcher[] = "VelmoraUpdate.exe";
constexpr char kCopy[] = "_VelmoraUpdate.exe";
constexpr char kSettings[] = "VelmoraUpdate.dat";
constexpr char kDirectory[] = "(directory)";
constexpr char kScript[] = "wait\nwait\nclose";  // a new patcher goes on with it
constexpr std::uint32_t kMostRuns = 5000;
constexpr int kKilled = 1000 + SIGKILL;  // as PatcherProcess::Wait returns it

// Enough for a write and a block of memory to count.
std::string Content(const std::string& name) {
  std::string content;
  while (content.size() < 6000) content += name + " of the game\n";
  return content;
}

// What the server holds, what stands on the player's disk before, and what must stand there after.
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

// The line that an earlier run left of a file.
std::string Verified(const std::string& path, const std::string& content) {
  return CacheLine({.path = path,
                    .transferHash = Sha1(content),
                    .transferSize = std::to_string(content.size()),
                    .contentHash = Sha1(content),
                    .contentSize = std::to_string(content.size())});
}

std::string SettingsText(std::uint16_t port, const std::string& edition) {
  return "; " + edition + "\r\n[Setting]\r\nServerAddress=127.0.0.1:" + std::to_string(port) +
         "\r\n";
}

// All kinds of records.
Publication EverythingAtOnce() {
  Publication game;
  game.Publish("changed.dat", Content("changed"), "/changed.dat");
  game.Publish("empty.dat", "", "/empty.dat");
  game.Publish("good.dat", Content("good"), "/good.dat");
  game.Publish("new\\deep\\plain.dat", Content("plain"), "/new/deep/plain.dat");
  game.Publish("vouched.dat", Content("vouched"), "/vouched.dat");
  game.served["/hashlist.dat"] += CompressedLine("packed.dat", Content("packed"));
  game.served["/packed.dat.compressed"] = Compressed(Content("packed"));
  game.after["packed.dat"] = Content("packed");
  game.served["/hashlist.dat"] +=
      "DEL : old.dat\r\nDEL : oldfolder\r\nDEL : *.tmp, R\r\nEXE : \\Game.exe\r\n";
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
  // The cache vouches for a file that has gone since, and knows an earlier edition of another.
  game.cache = Verified("changed.dat", Content("what was")) +
               Verified("good.dat", Content("good")) + Verified("vouched.dat", Content("vouched"));
  return game;
}

// A new settings file, or a new patcher, with which the program starts anew.
Publication NewEdition(const std::string& path, const std::string& content) {
  Publication game;
  game.Publish("behind.dat", Content("behind"), "/behind.dat");
  game.Publish(path, content, "/" + fs::path(path).filename().string());
  return game;
}

// All that stands in the working directory but the log and the cache.
Files Tree() {
  Files tree = FilesHere();
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(".")) {
    if (entry.is_directory()) {
      tree[entry.path().lexically_relative(".").generic_string()] = kDirectory;
    }
  }
  return tree;
}

std::vector<std::string> NamesOf(const Files& files) {
  std::vector<std::string> names;
  for (const auto& [name, content] : files) {
    names.push_back(name + " (" + std::to_string(content.size()) + ")");
  }
  return names;
}

void AddDirectories(Files& files) {
  for (const auto& [name, content] : Files(files)) {
    for (fs::path at = fs::path(name).parent_path(); !at.empty(); at = at.parent_path()) {
      files[at.generic_string()] = kDirectory;
    }
  }
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

struct Fault {
  std::string operation;
  std::string effect;
  std::uint32_t number;
};

std::uint32_t NumberFromEnvironment(const char* name, std::uint32_t fallback) {
  const char* text = std::getenv(name);
  return text == nullptr ? fallback : static_cast<std::uint32_t>(std::atoi(text));
}

// Whether each operation on the log is struck, and each operation with each of its errors.
bool IsExhaustive() { return NumberFromEnvironment("VELMORA_ALL_FAULTS", 0) != 0; }

class FaultyChain : public testing::Test {
 protected:
  FaultyChain()
      : server_([this](const ServedRequest& request) {
          return LoopbackServer::Serving(game_.served)(request);
        }) {
    WriteFile("report", std::string(sizeof(FaultReport), '\0'));
    const int file = open("report", O_RDWR | O_CLOEXEC);
    report_ = static_cast<FaultReport*>(
        mmap(nullptr, sizeof(FaultReport), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    close(file);
    fs::create_directory("installation");
    fs::current_path("installation");
  }
  ~FaultyChain() override { munmap(report_, sizeof(FaultReport)); }

  void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer takes the place of the same functions";
#endif
  }

  // The three publications; they name the server, so they are made when it listens.
  std::map<std::string, Publication> Publications() const {
    std::map<std::string, Publication> all = {
        {"everything", EverythingAtOnce()},
        {"new settings",
         NewEdition("./VelmoraUpdate.dat", SettingsText(server_.port(), Content("new")))},
        {"new patcher", NewEdition(kPatcher, program_ + "next edition")}};
    for (auto& [name, game] : all) {
      game.before.emplace(kSettings, SettingsText(server_.port(), "first"));
      game.after.emplace(kSettings, game.before[kSettings]);
      game.after.emplace(kPatcher, program_);
      AddDirectories(game.after);
    }
    return all;
  }

  void Install(const Publication& game) {
    game_ = game;
    for (const fs::directory_entry& entry : fs::directory_iterator(".")) {
      fs::remove_all(entry.path());
    }
    fs::copy_file(VELMORA_PROGRAM, kPatcher);
    for (const auto& [name, content] : game.before) WriteFile(name, content);
    if (!game.cache.empty()) WriteFile(kCacheFile, game.cache);
  }

  // Starts the chain with a fault in it; without one if the number is 0.
  std::unique_ptr<PatcherProcess> Start(const Fault& fault) {
    report_->counted = 0;
    report_->logged = 0;
    report_->struck = 0;
    report_->operation[0] = '\0';
    setenv("LD_PRELOAD", VELMORA_FAULTS, 1);
    setenv(kFaultOperation, fault.operation.c_str(), 1);
    setenv(kFaultEffect, fault.effect.c_str(), 1);
    setenv(kFaultNumber, std::to_string(fault.number).c_str(), 1);
    setenv(kFaultFolder, fs::current_path().c_str(), 1);
    setenv(kFaultLogStride, IsExhaustive() ? "1" : "5", 1);
    setenv(kFaultReport, fs::absolute("../report").c_str(), 1);
    auto patcher = StartUndisturbed();
    unsetenv("LD_PRELOAD");
    return patcher;
  }
  static std::unique_ptr<PatcherProcess> StartUndisturbed() {
    auto patcher =
        std::make_unique<PatcherProcess>("./VelmoraUpdate.exe", std::vector<std::string>{});
    patcher->Send(kScript);
    patcher->EndInput();
    return patcher;
  }

  [[nodiscard]] bool IsUpToDate() const {
    for (const auto& [name, content] : game_.after) {
      if (content == kDirectory ? !fs::is_directory(name) : ReadFile(name) != content) return false;
    }
    return true;
  }
  [[nodiscard]] bool HasStruckCopy() const {
    return std::string(report_->operation).find(kCopy) != std::string::npos;
  }

  void ExpectOrderlyEnd(const PatcherProcess& patcher, const Fault& fault) const {
    EXPECT_TRUE(fault.effect == "full" || IsLogOfWholeLines()) << ReadFile("session.log");
    // A launch or a run that doesn't start isn't told.
    const bool mayBeSilent =
        IsUpToDate() || fault.operation == "exec" || fault.operation == "thread";
    EXPECT_TRUE(mayBeSilent || !patcher.errors().empty()) << "the player isn't told";
    const bool mayLeaveCopy =
        HasStruckCopy() || fault.operation == "exec" || fault.effect == "full";
    EXPECT_TRUE(mayLeaveCopy || !fs::exists(kCopy));
    for (const auto& [name, content] : Tree()) {
      const bool isKnown = game_.before.contains(name) || game_.after.contains(name);
      const bool isStruck = std::string(report_->operation).ends_with(kUnfinishedFolders);
      EXPECT_TRUE(isKnown || name == kCopy || content == kDirectory ||
                  (isStruck && name == kUnfinishedFolders))
          << name << " left behind";
    }
  }

  // The one start that has to be enough, with the cache as the disturbed one left it.
  void ExpectHealing() const {
    const auto patcher = StartUndisturbed();
    EXPECT_EQ(patcher->Wait(), 0);
    const Files tree = Tree();
    EXPECT_EQ(NamesOf(tree), NamesOf(game_.after)) << patcher->errors();
    EXPECT_TRUE(tree == game_.after) << "contents differ";
    EXPECT_TRUE(IsLogOfWholeLines());
    const auto log = LogMessages();
    EXPECT_TRUE(!log.empty() && log.back() == "Deleted temporary files.");
  }

  // Strikes the operations of a kind one by one, from the first one to the last one of a run. A
  // chain that is struck ends with `status`.
  template <typename Check>
  void StrikeEach(const std::string& operation, const std::vector<std::string>& effects, int status,
                  const Check& check) {
    for (const auto& [name, game] : Publications()) {
      // A new edition differs in what is written of it; both editions, in what a kill leaves.
      const bool reads = operation == "open" || operation == "read" || operation == "status";
      const bool differs = name == "everything" || (name == "new patcher" && !reads);
      if (status == 0 && !differs && !IsExhaustive()) continue;
      std::uint32_t runs = 0;
      for (bool struck = true; struck && runs < kMostRuns;) {
        const std::uint32_t n = runs / EffectsOf(effects) + 1;
        const Fault fault{operation, effects[runs % effects.size()], n};
        Install(game);
        const auto patcher = Start(fault);
        const int end = patcher->Wait();
        struck = report_->struck != 0;
        SCOPED_TRACE(name + ", number " + std::to_string(n) + ", " + fault.effect + ": " +
                     report_->operation);
        // A restart that can't be launched leaves its exit status for whoever waits.
        EXPECT_TRUE(end == (struck ? status : 0) ||
                    (operation == "exec" && end == (kExitRestart & 0xFF)))
            << end;
        if (!struck) break;
        ++runs;
        check(*patcher, fault);
        ExpectHealing();
      }
      EXPECT_LT(runs, kMostRuns);
      std::printf("%s, %s: %u runs\n", operation.c_str(), name.c_str(), runs);
    }
  }
  // How many effects each operation gets: all, or one in turn.
  static std::uint32_t EffectsOf(const std::vector<std::string>& effects) {
    return IsExhaustive() ? static_cast<std::uint32_t>(effects.size()) : 1;
  }

  TemporaryFolder folder_;
  const std::string program_ = ReadFile(VELMORA_PROGRAM);
  Publication game_;
  LoopbackServer server_;
  FaultReport* report_ = nullptr;
};

struct FaultKind {
  std::string name;
  std::string operation;
  std::vector<std::string> effects;
};

void PrintTo(const FaultKind& kind, std::ostream* out) { *out << kind.operation; }

std::string Error(int code) { return std::to_string(code); }

class Faults : public FaultyChain, public testing::WithParamInterface<FaultKind> {};

TEST_P(Faults, EndInOrderAndHeal) {
  StrikeEach(GetParam().operation, GetParam().effects, 0,
             [this](const PatcherProcess& patcher, const Fault& fault) {
               ExpectOrderlyEnd(patcher, fault);
             });
}

INSTANTIATE_TEST_SUITE_P(
    Operations, Faults,
    testing::Values(
        FaultKind{"Open", "open", {Error(ENOENT), Error(EACCES), Error(EMFILE)}},
        FaultKind{"Read", "read", {Error(EIO), "half"}},
        FaultKind{"Write", "write", {Error(ENOSPC), "half", "full"}},
        FaultKind{"Close", "close", {Error(EIO)}}, FaultKind{"Unlink", "unlink", {Error(EACCES)}},
        FaultKind{"RemoveDirectory", "rmdir", {Error(EBUSY)}},
        FaultKind{"MakeDirectory", "mkdir", {Error(ENOSPC)}},
        FaultKind{"Rename", "rename", {Error(EACCES)}},
        FaultKind{"Truncate", "ftruncate", {Error(EIO)}},
        FaultKind{"Mode", "chmod", {Error(EPERM)}}, FaultKind{"Status", "status", {Error(EACCES)}},
        FaultKind{"Memory", "memory", {Error(ENOMEM)}},
        FaultKind{"Thread", "thread", {Error(EAGAIN)}}, FaultKind{"Exec", "exec", {Error(ENOENT)}}),
    [](const auto& kind) { return kind.param.name; });

class Kills : public FaultyChain {};

TEST_F(Kills, InFrontOfEachChange) {
  StrikeEach("change", {"kill"}, kKilled, [](const PatcherProcess&, const Fault&) {});
}

TEST_F(Kills, HalfWayThroughEachWrite) {
  StrikeEach("write", {"kill-half"}, kKilled, [](const PatcherProcess&, const Fault&) {});
}

}  // namespace
}  // namespace velmora::test
