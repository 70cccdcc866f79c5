// A server that misbehaves in a thousand generated ways. Whatever it does: no wrong byte under a
// right name, nothing else touched, an end in bounded time and memory, and a run against an honest
// server heals everything.
//
// The number of a case decides all of it. VELMORA_CASE=n runs one, VELMORA_CASES=k runs so many,
// spread evenly over the thousand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "base/text.h"
#include "engine/record_set.h"
#include "engine/server_connection.h"
#include "engine/update_state.h"
#include "platform/clock.h"
#include "platform/http.h"
#include "support/hostile_replies.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;

constexpr int kCases = 1000;
constexpr int kShards = 4;
constexpr std::uint32_t kLongestRun = 8000;  // shorter than the program's own time-out
#ifdef _WIN32
constexpr char kLeftOut[] = "endless headers";  // Wine takes minutes for them
#else
constexpr char kLeftOut[] = "(none)";
#endif
constexpr std::uint32_t kStallTimeout = 150;

const std::string kListPath = "/hashlist.dat";

// What the server holds of a compressed file, and the size that the list gives the file. The list
// has the hash of this very stream, so that only its expansion can fail.
struct Stream {
  std::string bytes;
  std::string contentSize;
};

Stream HostileStream(Random& random, const std::string& content, const std::string& bomb) {
  const std::string right = Compressed(content);
  const std::string size = std::to_string(content.size());
  const std::string dictionary = "\x78\xBB";  // asks for one
  if (random.Chance(30)) {
    return {right, random.Pick<std::string>({std::to_string(content.size() - 1), "1", "0", "-1",
                                             "text", "2147483647", "99999999999"})};
  }
  return {random.Pick<std::string>(
              {bomb, bomb, Compressed(content + "x"), Compressed(Times(10, content)),
               right.substr(0, random.Below(right.size())), right.substr(0, right.size() - 1),
               right + random.Bytes(1 + random.Below(5000)), right + right,
               right.substr(0, 2) + random.Bytes(200), dictionary + right.substr(2),
               random.Damaged(right), content, ""}),
          size};
}

// An installation as the cases find it, and as the published list wants it.
struct Publication {
  Files before = {{"keep.dat", "right already"},
                  {"old.dat", "the old bytes"},
                  {"pack.dat", "old bytes of a packed file"},
                  {"gone.dat", "listed for removal"},
                  {"player.sav", "the player's own"}};
  Files after;
  std::map<std::string, Stream> streams;  // of the compressed files

  Publication() {
    Random random(0);
    after = {{"keep.dat", before["keep.dat"]},
             {"old.dat", random.Bytes(300)},
             {"pack.dat", Times(40, random.Bytes(20)) + random.Bytes(3000)},
             {"player.sav", before["player.sav"]},
             {"sub/new.dat", random.Bytes(5000)},
             {"sub/large.bin", random.Bytes(70000) + std::string(70000, 'z')}};
    for (const char* path : {"pack.dat", "sub/large.bin"}) {
      streams[path] = {Compressed(after[path]), std::to_string(after[path].size())};
    }
  }

  // What its server holds, by request path.
  [[nodiscard]] Files Served() const {
    Files served = {{kListPath, "DEL : gone.dat\r\n"}};
    for (const auto& [path, content] : after) {
      if (path == "player.sav") continue;
      std::string listed = path;
      std::replace(listed.begin(), listed.end(), '/', '\\');
      const auto stream = streams.find(path);
      if (stream == streams.end()) {
        served["/" + path] = content;
        served[kListPath] += FileLine(listed, content);
        continue;
      }
      const auto& [bytes, contentSize] = stream->second;
      served["/" + path + ".compressed"] = bytes;
      served[kListPath] += "FILE : " + listed + ".compressed, " + Sha1(bytes) + ", " +
                           std::to_string(bytes.size()) + ", " + Sha1(content) + ", " +
                           contentSize + "\r\n";
    }
    return served;
  }
};

struct Case {
  Publication published;
  std::string kind;    // of the replies; empty for an honest server of a hostile stream
  std::string target;  // the request path that is answered so; empty for all
  int times = 100;     // how often, before the server becomes honest
  unsigned seed = 0;

  Case(int number, const Publication& honest, const std::string& bomb)
      : published(honest), seed(static_cast<unsigned>(number)) {
    static const std::vector<std::string> kKinds = HostileKinds();
    Random random(seed);
    const std::size_t drawn = seed % (kKinds.size() + 1);
    if (drawn == kKinds.size()) {
      target = random.Pick<std::string>({"pack.dat", "sub/large.bin"});
      published.streams[target] = HostileStream(random, honest.after.at(target), bomb);
      return;
    }
    kind = kKinds[drawn];
    target = random.Pick<std::string>(
        {"/old.dat", "/pack.dat.compressed", "/sub/new.dat", "/sub/large.bin.compressed"});
    if (kind != "stall" && random.Chance(35)) target = random.Chance(60) ? kListPath : "";
    if (random.Chance(25)) times = 1 + static_cast<int>(random.Below(3));
  }

  // Whether the patcher may take another list, or a part of it, for a whole one.
  [[nodiscard]] bool ChangesList() const {
    return kListPath.starts_with(target) &&
           (kind == "length" || kind == "body" || kind.ends_with("chunks") || kind == "early end");
  }
};

bool Holds(const Files& files, const std::string& path, const std::string& content) {
  const auto found = files.find(path);
  return found != files.end() && found->second == content;
}

// The process's memory, at its peak since the last call, in MiB; 0 where that is unknown, as under
// a sanitizer, which keeps what is freed.
int TakePeakMemory() {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with("VmHWM:")) continue;
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak starts again from the present size
    return ToNumber(line.substr(6)) / 1024;
  }
#endif
  return 0;
}

class HostileServer : public EngineTest, public testing::WithParamInterface<int> {
 protected:
  void Prepare() {
    CloseIfOpen(RequestHandle);
    CloseIfOpen(ConnectionHandle);
    CloseIfOpen(SessionHandle);
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
    for (const auto& [path, content] : honest_.before) WriteFile(path, content);
    ResetDialog();
    RestartRequested = 0;
  }

  static Reply Answer(const Case& hostile, const Files& served, const ServedRequest& request,
                      int& left) {
    const std::string prefix = "/honest";
    const bool isHonest = request.path.starts_with(prefix);
    const std::string path = request.path.substr(isHonest ? prefix.size() : 0);
    const auto found = served.find(path.substr(0, path.find('?')));
    const bool exists = found != served.end();
    if (!hostile.kind.empty() && !isHonest && path.starts_with(hostile.target) && left-- > 0) {
      Random random(hostile.seed);
      return HostileReply(hostile.kind, random, path, exists ? found->second : "nothing");
    }
    return exists ? Ok(found->second) : Status(404);
  }

  void RunAgainst(const Case& hostile) {
    Serve([&hostile, served = hostile.published.Served(),
           left = hostile.times](const ServedRequest& request) mutable {
      return Answer(hostile, served, request, left);
    });
    if (hostile.kind == "stall") {
      // The program's time-outs are long. A record is shown before its request.
      Dialog().onEvent = [](const std::string&) {
        platform::SetHttpTimeouts(SessionHandle, kStallTimeout);
        platform::SetHttpTimeouts(ConnectionHandle, kStallTimeout);
      };
    }
    const std::uint32_t start = platform::TickCount();
    EXPECT_TRUE(Run());
    EXPECT_LT(platform::TickCount() - start, kLongestRun);
    Dialog().onEvent = nullptr;
  }

  // What each file must hold by the list, as the patcher got the list.
  [[nodiscard]] Files Listed() const {
    Files listed;
    for (const FileRecord& record : UpdateSet) {
      std::string path = record.path;
      std::replace(path.begin(), path.end(), '\\', '/');
      const auto found = honest_.after.find(path);
      listed[path] = found == honest_.after.end() ? "(not published)" : found->second;
      const int size = std::max(ToNumber(record.contentSize), 0);
      if (found != honest_.after.end() && !record.compressed) {
        listed[path].resize(static_cast<std::size_t>(size));
      }
    }
    return listed;
  }

  void Judge(const Case& hostile) {
    const Files files = FilesHere();
    const Files listed = Listed();
    for (const auto& [path, content] : files) {
      EXPECT_TRUE(Holds(honest_.before, path, content) || Holds(honest_.after, path, content) ||
                  (hostile.ChangesList() && Holds(listed, path, content)))
          << path << " holds " << content.size() << " bytes";
    }
    for (const auto& [path, content] : honest_.before) {
      EXPECT_TRUE(path == "gone.dat" || files.contains(path)) << path << " is gone";
    }
    const bool failed = UpdateState != kEnded;
    EXPECT_EQ(EventsOf("box").size(), failed ? 1U : 0U);
    told_ += failed ? 1 : 0;
    for (const auto& [path, content] : listed) {
      // What is right already stays, even if the list has lost a digit of its size.
      const bool isRight = files.contains(path) && Holds(honest_.after, path, files.at(path));
      EXPECT_TRUE(failed || isRight || Holds(files, path, content)) << path;
    }
  }

  void RunCase(int number) {
    const Case hostile(number, honest_, bomb_);
    if (hostile.kind == kLeftOut) return;
    const std::string name =
        "VELMORA_CASE=" + std::to_string(number) + ": " + hostile.kind + " of " + hostile.target;
    std::puts(name.c_str());
    SCOPED_TRACE(name);
    Prepare();
    RunAgainst(hostile);
    Judge(hostile);

    ResetDialog();
    Serve(honest_.Served());
    EXPECT_TRUE(Run());
    EXPECT_EQ(UpdateState, kEnded);
    EXPECT_TRUE(FilesHere() == honest_.after);
    if (HasFailure()) std::fputs(ReadFile("session.log").c_str(), stdout);
  }

  const Publication honest_;
  const std::string bomb_ = Compressed(std::string(std::size_t{96} << 20, '\0'));
  int told_ = 0;
};

// The cases of a shard: spread over the thousand, or the one that is asked for. The kind of a case
// repeats with its number, so an even stride would leave kinds out.
std::vector<int> NumbersOf(int shard) {
  const auto number = [](const char* variable, int fallback) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? fallback : ToNumber(text);
  };
  const int single = number("VELMORA_CASE", -1);
  if (single >= 0) return single % kShards == shard ? std::vector{single} : std::vector<int>{};
  const int count = number("VELMORA_CASES", 200);
  std::vector<int> numbers;
  for (int i = shard; i < count; i += kShards) {
    const int first = i * kCases / count;
    const int stride = std::max(1, kCases / count);
    Random random(static_cast<unsigned>(i));
    numbers.push_back(first + static_cast<int>(random.Below(static_cast<std::size_t>(stride))));
  }
  return numbers;
}

TEST_P(HostileServer, NeverLeavesAWrongByte) {
  TakePeakMemory();
  const int memory = TakePeakMemory();
  const std::vector<int> numbers = NumbersOf(GetParam());
  for (const int number : numbers) RunCase(number);
  const int more = TakePeakMemory() - memory;
  std::printf("%zu cases, %d of them told to the player, %d MiB more\n", numbers.size(), told_,
              more);
  EXPECT_LT(more, 64);
}

INSTANTIATE_TEST_SUITE_P(Shards, HostileServer, testing::Range(0, kShards));

}  // namespace
}  // namespace velmora::test
