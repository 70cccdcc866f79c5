// A server that misbehaves in a thousand generated ways. Whatever it does: no wrong byte under a
// right name, nothing else touched, an end in bounded time and memory, and a run against an honest
// server heals everything.
//
// The number of a case decides all of it. VELMORA_CASE=n carries out one, VELMORA_CASES=k so many,
// spread evenly over the thousand.
#include <gtest/gtest.h>
#include <zlib.h>

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
using namespace std::string_literals;
using Files = std::map<std::string, std::string>;

constexpr int kCases = 1000;
constexpr int kShards = 4;
constexpr std::uint32_t kLongestRun = 8000;  // below the product's own time-out
constexpr std::uint32_t kStallTimeout = 150;

const std::string kListPath = "/hashlist.dat";

// A stream of so many zeros, made piece by piece: only a reader may need memory for them.
std::string CompressedZeros(std::size_t size) {
  std::string piece(65536, '\0');
  std::string stream(size / 256 + 1000, '\0');
  z_stream state{};
  EXPECT_EQ(deflateInit(&state, Z_DEFAULT_COMPRESSION), Z_OK);
  state.next_out = reinterpret_cast<Bytef*>(stream.data());
  state.avail_out = static_cast<uInt>(stream.size());
  for (std::size_t given = 0; given < size; given += piece.size()) {
    state.next_in = reinterpret_cast<Bytef*>(piece.data());
    state.avail_in = static_cast<uInt>(piece.size());
    deflate(&state, Z_NO_FLUSH);
  }
  EXPECT_EQ(deflate(&state, Z_FINISH), Z_STREAM_END);
  stream.resize(state.total_out);
  deflateEnd(&state);
  return stream;
}

// A stream in the place of that of a compressed record, and the size that the list then gives the
// file. The list names the hash of this very stream, so that only its expansion can fail.
struct Stream {
  std::string bytes;
  std::string contentSize;
};

Stream HostileStream(Random& random, const std::string& content) {
  static const std::string kBomb = CompressedZeros(std::size_t{96} << 20);
  const std::string right = Compressed(content);
  const std::string size = std::to_string(content.size());
  std::string damaged = right;
  damaged[random.Below(damaged.size())] ^= static_cast<char>(1U << random.Below(8));
  return random.Pick<Stream>({
      {kBomb, size},
      {kBomb, "1"},
      {Compressed(content + "x"), size},
      {Compressed(Times(10, content)), size},
      {right, std::to_string(content.size() - 1)},
      {right, "1"},
      {right, "0"},
      {right, "-1"},
      {right, "text"},
      {right, "2147483647"},
      {right, "99999999999"},
      {right.substr(0, random.Below(right.size())), size},
      {right.substr(0, right.size() - 1), size},
      {right + random.Bytes(1 + random.Below(5000)), size},
      {right + right, size},
      {right.substr(0, 2) + random.Bytes(200), size},
      {"\x78\xBB"s + right.substr(2), size},  // asks for a dictionary
      {damaged, size},
      {content, size},
      {"", size},
  });
}

// An installation as the cases find it, and as the published list wants it.
struct Publication {
  Files before = {{"keep.dat", "right already"},
                  {"old.dat", "the old bytes"},
                  {"pack.dat", "old bytes of a packed file"},
                  {"gone.dat", "listed for removal"},
                  {"player.sav", "the player's own"}};
  Files after;
  std::map<std::string, Stream> streams;  // of the compressed ones

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

  [[nodiscard]] std::string List() const {
    std::string list = "DEL : gone.dat\r\n";
    for (const auto& [path, content] : after) {
      if (path == "player.sav") continue;
      std::string listed = path;
      std::replace(listed.begin(), listed.end(), '/', '\\');
      const auto stream = streams.find(path);
      if (stream == streams.end()) {
        list += FileLine(listed, content);
        continue;
      }
      const std::string& bytes = stream->second.bytes;
      list += "FILE : " + listed + ".compressed, " + Sha1(bytes) + ", " +
              std::to_string(bytes.size()) + ", " + Sha1(content) + ", " +
              stream->second.contentSize + "\r\n";
    }
    return list;
  }

  // What its server holds, by request path.
  [[nodiscard]] Files Served() const {
    Files served = {{kListPath, List()}};
    for (const auto& [path, content] : after) {
      const auto stream = streams.find(path);
      if (stream == streams.end()) {
        served["/" + path] = content;
      } else {
        served["/" + path + ".compressed"] = stream->second.bytes;
      }
    }
    return served;
  }
};

struct Case {
  std::string name;
  const HostileKind* kind = nullptr;  // none: an honest server of a publication that isn't
  std::string target;                 // the request path that is answered so; empty: all
  int times = 100;                    // how often, before the server becomes honest
  unsigned seed = 0;
  Publication published;

  [[nodiscard]] bool Is(const char* kindName) const {
    return kind != nullptr && kind->name == kindName;
  }
  [[nodiscard]] bool Targets(const std::string& path) const {
    return target.empty() || path.starts_with(target);
  }
  // Whether the patcher may get another list for a whole one, or a part of it.
  [[nodiscard]] bool ChangesList() const {
    return Targets(kListPath) && (Is("length") || Is("body") || Is("chunks") || Is("early end"));
  }
};

Case MakeCase(int number, const Publication& honest) {
  static const std::vector<std::string> kFiles = {"/old.dat", "/pack.dat.compressed",
                                                  "/sub/new.dat", "/sub/large.bin.compressed"};
  const auto& kinds = HostileKinds();
  const std::size_t drawn = static_cast<std::size_t>(number) % (kinds.size() + 1);
  Random random(static_cast<unsigned>(number));
  Case made;
  made.seed = static_cast<unsigned>(number);
  made.published = honest;
  made.target = random.Pick(kFiles);
  if (drawn == kinds.size()) {
    const std::string path = random.Pick<std::string>({"pack.dat", "sub/large.bin"});
    made.published.streams[path] = HostileStream(random, honest.after.at(path));
    made.name = "stream " + path;
    return made;
  }
  made.kind = &kinds[drawn];
  if (!made.Is("stall") && random.Chance(35)) made.target = random.Chance(60) ? kListPath : "";
  if (random.Chance(25)) made.times = 1 + static_cast<int>(random.Below(3));
  made.name = made.kind->name + (made.target.empty() ? " of all" : " of " + made.target);
  return made;
}

class HostileServer : public EngineTest, public testing::WithParamInterface<int> {
 protected:
  void Prepare(const Publication& honest) {
    CloseIfOpen(RequestHandle);
    CloseIfOpen(ConnectionHandle);
    CloseIfOpen(SessionHandle);
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
    for (const auto& [path, content] : honest.before) WriteFile(path, content);
    ResetDialog();
    RestartRequested = 0;
  }

  static Reply Answer(const Case& hostile, const Files& served, const ServedRequest& request,
                      int& left) {
    const std::string prefix = "/honest";
    const bool isHonest = request.path.starts_with(prefix);
    const std::string path = request.path.substr(isHonest ? prefix.size() : 0);
    const auto found = served.find(path.substr(0, path.find('?')));
    if (hostile.kind != nullptr && !isHonest && hostile.Targets(path) && left-- > 0) {
      Random random(hostile.seed);
      return hostile.kind->reply(random, {path, found == served.end() ? "nothing" : found->second});
    }
    return found == served.end() ? Status(404) : Ok(found->second);
  }

  void RunAgainst(const Case& hostile) {
    Serve([&hostile, served = hostile.published.Served(),
           left = hostile.times](const ServedRequest& request) mutable {
      return Answer(hostile, served, request, left);
    });
    if (hostile.Is("stall")) {
      // The product's time-outs are long; what a record shows comes in front of its request.
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

  void Judge(const Case& hostile, const Publication& honest) {
    // What the list gives each file, as the patcher got the list.
    Files listed;
    for (const FileRecord& record : UpdateSet) {
      std::string path = record.path;
      std::replace(path.begin(), path.end(), '\\', '/');
      const auto found = honest.after.find(path);
      listed[path] = found == honest.after.end() ? "(not published)" : found->second;
      const int size = std::max(ToNumber(record.contentSize), 0);
      if (found != honest.after.end() && !record.compressed)
        listed[path].resize(static_cast<std::size_t>(size));
    }
    const Files files = FilesHere();
    for (const auto& [path, content] : files) {
      const auto before = honest.before.find(path);
      const auto after = honest.after.find(path);
      const bool isOld = before != honest.before.end() && content == before->second;
      const bool isNew = after != honest.after.end() && content == after->second;
      const bool isAsListed =
          hostile.ChangesList() && listed.contains(path) && content == listed[path];
      EXPECT_TRUE(isOld || isNew || isAsListed) << path << " holds " << content.size() << " bytes";
    }
    for (const auto& [path, content] : honest.before) {
      EXPECT_TRUE(path == "gone.dat" || files.contains(path)) << path << " is gone";
    }
    if (UpdateState != kEnded) {
      EXPECT_EQ(EventsOf("box").size(), 1U);
      ++told_;
      return;
    }
    EXPECT_TRUE(EventsOf("box").empty());
    for (const auto& [path, content] : listed) {
      EXPECT_TRUE(files.contains(path) && files.at(path) == content) << path;
    }
  }

  void Carry(int number) {
    static const Publication honest;
    const Case hostile = MakeCase(number, honest);
    std::printf("case %d: %s\n", number, hostile.name.c_str());
    SCOPED_TRACE("VELMORA_CASE=" + std::to_string(number) + ": " + hostile.name);
    Prepare(honest);
    RunAgainst(hostile);
    Judge(hostile, honest);

    ResetDialog();
    Serve(honest.Served());
    EXPECT_TRUE(Run());
    EXPECT_EQ(UpdateState, kEnded);
    EXPECT_TRUE(FilesHere() == honest.after);
    if (HasFailure()) std::fputs(ReadFile("session.log").c_str(), stdout);
  }

  int told_ = 0;
};

// The most memory that the process has ever had, in MiB; 0 where that can't be told, as under a
// sanitizer, which keeps what is freed.
int MostMemory() {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return ToNumber(line.substr(6)) / 1024;
  }
#endif
  return 0;
}

// The cases of a shard: evenly spread over the thousand, or the one that is asked for.
std::vector<int> NumbersOf(int shard) {
  std::vector<int> numbers;
  const auto number = [](const char* variable, int fallback) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? fallback : ToNumber(text);
  };
  const int single = number("VELMORA_CASE", -1);
  const int count = number("VELMORA_CASES", 200);
  for (int i = shard; single < 0 && i < count; i += kShards) numbers.push_back(i * kCases / count);
  if (single >= 0 && single % kShards == shard) numbers.push_back(single);
  return numbers;
}

TEST_P(HostileServer, NeverLeavesAWrongByte) {
  const int memory = MostMemory();
  const std::uint32_t start = platform::TickCount();
  const std::vector<int> numbers = NumbersOf(GetParam());
  for (const int number : numbers) Carry(number);
  const int more = MostMemory() - memory;
  std::printf("%zu cases, %d of them told to the player, %u ms, %d MiB more\n", numbers.size(),
              told_, platform::TickCount() - start, more);
  EXPECT_LT(more, 64);
}

INSTANTIATE_TEST_SUITE_P(Shards, HostileServer, testing::Range(0, kShards));

}  // namespace
}  // namespace velmora::test
