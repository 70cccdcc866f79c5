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

constexpr int kCases = 1000;
#ifdef __SANITIZE_THREAD__
constexpr std::uint32_t kLongestRun = 60000;  // it marks every byte of a block of 2 GiB
#else
constexpr std::uint32_t kLongestRun = 8000;  // shorter than the program's own time-out
#endif
#ifdef _WIN32
constexpr char kLeftOut[] = "endless headers";  // Wine takes minutes for them
#else
constexpr char kLeftOut[] = "(none)";
#endif
constexpr std::uint32_t kStallTimeout = 150;

const std::string kListPath = "/hashlist.dat";

// An installation as the cases find it, and as the published list wants it.
struct Publication {
  Files before = {{"keep.dat", "right already"},
                  {"old.dat", "the old bytes"},
                  {"pack.dat", "old bytes of a packed file"},
                  {"gone.dat", "listed for removal"},
                  {"player.sav", "the player's own"}};
  Files after;
  Files served = {{kListPath, "DEL : gone.dat\r\n"}};

  Publication() {
    Random random(0);
    after = {{"keep.dat", before["keep.dat"]},
             {"old.dat", random.Bytes(300)},
             {"pack.dat", random.Bytes(3000) + std::string(800, 'z')},
             {"new.dat", random.Bytes(5000)},
             {"large.bin", random.Bytes(70000) + std::string(70000, 'z')}};
    for (const auto& [path, content] : after) {
      const bool packed = path == "pack.dat" || path == "large.bin";
      served[kListPath] += packed ? CompressedLine(path, content) : FileLine(path, content);
      served["/" + path + (packed ? ".compressed" : "")] = packed ? Compressed(content) : content;
    }
    after["player.sav"] = before["player.sav"];
  }
};

struct Case {
  std::string kind;    // of the replies
  std::string target;  // the request path that is answered so; empty for all
  int times = 100;     // how often, before the server becomes honest
  unsigned seed = 0;

  explicit Case(int number) : seed(static_cast<unsigned>(number)) {
    static const std::vector<std::string> kKinds = HostileKinds();
    Random random(seed);
    kind = kKinds[seed % kKinds.size()];
    target = random.Pick<std::string>(
        {"/old.dat", "/pack.dat.compressed", "/new.dat", "/large.bin.compressed"});
    if (kind != "stall" && random.Chance(35)) target = random.Chance(60) ? kListPath : "";
    // After a length that is no number the request is repeated, and must meet the same reply.
    if (kind != "length" && random.Chance(25)) times = 1 + static_cast<int>(random.Below(3));
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

class HostileServer : public EngineTest {
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

  [[nodiscard]] Reply Answer(const Case& hostile, const ServedRequest& request, int& left) const {
    const std::string prefix = "/honest";
    const bool isHonest = request.path.starts_with(prefix);
    const std::string path = request.path.substr(isHonest ? prefix.size() : 0);
    const auto found = honest_.served.find(path.substr(0, path.find('?')));
    const bool exists = found != honest_.served.end();
    if (!isHonest && path.starts_with(hostile.target) && left-- > 0) {
      Random random(hostile.seed);
      return HostileReply(hostile.kind, random, path, exists ? found->second : "nothing");
    }
    return exists ? Ok(found->second) : Status(404);
  }

  void RunAgainst(const Case& hostile) {
    Serve([this, &hostile, left = hostile.times](const ServedRequest& request) mutable {
      return Answer(hostile, request, left);
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
      const auto found = honest_.after.find(record.path);
      const bool isPublished = found != honest_.after.end();
      std::string& content = listed[record.path] = isPublished ? found->second : "(not published)";
      if (isPublished && !record.compressed) {
        content.resize(static_cast<std::size_t>(std::max(ToNumber(record.contentSize), 0)));
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
    for (const auto& [path, content] : listed) {
      // What is right already stays, even if the list has lost a digit of its size.
      const bool isRight = files.contains(path) && Holds(honest_.after, path, files.at(path));
      EXPECT_TRUE(failed || isRight || Holds(files, path, content)) << path;
    }
  }

  void RunCase(int number) {
    const Case hostile(number);
    if (hostile.kind == kLeftOut) return;
    const std::string name =
        "VELMORA_CASE=" + std::to_string(number) + ": " + hostile.kind + " of " + hostile.target;
    std::puts(name.c_str());
    SCOPED_TRACE(name);
    Prepare();
    RunAgainst(hostile);
    Judge(hostile);

    ResetDialog();
    Serve(honest_.served);
    EXPECT_TRUE(Run());
    EXPECT_EQ(UpdateState, kEnded);
    EXPECT_TRUE(FilesHere() == honest_.after);
    if (HasFailure()) std::fputs(ReadFile("session.log").c_str(), stdout);
  }

  const Publication honest_;
};

// All that are wanted. The kind of a case repeats with its number, so an even stride would leave
// kinds out.
std::vector<int> CaseNumbers() {
  if (const char* const single = std::getenv("VELMORA_CASE")) return {ToNumber(single)};
  const char* const count = std::getenv("VELMORA_CASES");
  const int stride = std::max(1, kCases / (count == nullptr ? 200 : ToNumber(count)));
  Random random(0);
  std::vector<int> numbers;
  for (int first = 0; first < kCases; first += stride) {
    numbers.push_back(first + static_cast<int>(random.Below(static_cast<std::size_t>(stride))));
  }
  return numbers;
}

TEST_F(HostileServer, NeverLeavesAWrongByte) {
  TakePeakMemory();
  const int memory = TakePeakMemory();
  const std::vector<int> numbers = CaseNumbers();
  for (const int number : numbers) RunCase(number);
  const int more = TakePeakMemory() - memory;
  std::printf("%zu cases, %d MiB more\n", numbers.size(), more);
  EXPECT_LT(more, 64);
}

}  // namespace
}  // namespace velmora::test
