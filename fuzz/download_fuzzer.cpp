// The way of a body from the connection to the disk: whatever a server sends, a file changes only
// when the record's proof and, for a compressed one, its expansion have succeeded. Further lines
// of the input:
//   chunks N...       bytes that become available in turn; then the rest of the body
//   give N            a read gives at most this many
//   break N           the read after this many bytes fails
//   old TEXT          what the file held before
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>

#include "engine/download.h"
#include "engine/install.h"
#include "engine/request_path.h"
#include "engine/server_connection.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "harness.h"
#include "platform/http.h"
#include "platform/memory.h"
#include "platform/posix/native_path.h"
#include "settings/patcher_settings.h"
#include "support/recording_dialog.h"

namespace velmora::platform {
namespace {

constexpr std::size_t kMemory = std::size_t{1} << 20;

struct Answer {
  fuzz::Delivery sent{""};
  std::vector<std::int32_t> chunks;
  std::size_t give = std::numeric_limits<std::size_t>::max();
  std::size_t breakAt = std::numeric_limits<std::size_t>::max();

  std::size_t at = 0;     // of the body
  std::size_t chunk = 0;  // the one that is available
  std::string delivered;  // all bytes that reads have returned
  bool isBroken = false;
  bool hasEnded = false;  // the reader has met the end
};
Answer answer;

}  // namespace

// Blocks beyond a small memory are unavailable.
void* AllocateMemory(std::size_t size, bool zeroed) {
  if (size > kMemory) return nullptr;
  return zeroed ? std::calloc(size, 1) : std::malloc(size);
}
void FreeMemory(void* block, std::size_t) { std::free(block); }

HttpHandle OpenHttpSession(const char*) { return 1; }
void SetHttpTimeouts(HttpHandle, std::uint32_t) {}
HttpHandle ConnectHttp(HttpHandle, const std::string&, std::uint16_t, const std::string&,
                       const std::string&) {
  return 2;
}
HttpHandle OpenHttpGet(HttpHandle, const std::string&) { return 3; }
void SendHttpRequest(HttpHandle) {}

std::optional<std::string> QueryHttpField(HttpHandle, HttpField field, std::size_t bufferSize) {
  const auto text = field == HttpField::kStatusCode ? answer.sent.status : answer.sent.length;
  return text && text->size() < bufferSize ? text : std::nullopt;
}

// A server may announce more than there is: the number is the input's.
std::uint32_t QueryHttpDataAvailable(HttpHandle) {
  std::uint32_t available = 0;
  if (answer.chunk < answer.chunks.size()) {
    available = static_cast<std::uint32_t>(answer.chunks[answer.chunk++]);
  } else if (answer.at < answer.sent.body.size()) {
    available = static_cast<std::uint32_t>(answer.sent.body.size() - answer.at);
  } else if (answer.at >= answer.breakAt) {
    available = 1;
  }
  answer.hasEnded = available == 0;
  return available;
}

bool ReadHttp(HttpHandle, void* buffer, std::uint32_t size, std::uint32_t& read) {
  answer.isBroken = answer.at >= answer.breakAt;
  const std::size_t left = answer.sent.body.size() - answer.at;
  read = static_cast<std::uint32_t>(
      answer.isBroken ? 0 : std::min({std::size_t{size}, left, answer.give}));
  std::memcpy(buffer, answer.sent.body.data() + answer.at, read);
  answer.delivered.append(answer.sent.body, answer.at, read);
  answer.at += read;
  answer.hasEnded = !answer.isBroken && read == 0;
  return !answer.isBroken;
}

void CloseHttpHandle(HttpHandle) {}

}  // namespace velmora::platform

namespace velmora::fuzz {
namespace {

namespace fs = std::filesystem;
using platform::answer;

void PrepareAnswer(std::string_view input) {
  answer = platform::Answer();
  answer.sent = Delivery(input);
  answer.chunks = answer.sent.Numbers("chunks");
  const auto first = [](const std::string& name, std::size_t& number) {
    const std::vector<std::int32_t> numbers = answer.sent.Numbers(name);
    if (!numbers.empty()) number = static_cast<std::size_t>(std::max(numbers[0], 0));
  };
  first("give", answer.give);
  first("break", answer.breakAt);
}

// Keeps what the target writes inside its folder: a list is trusted, a fuzzer isn't. And the log is
// the one thing there that isn't the record's.
bool StaysInside(const std::string& path) {
  const bool isRelative = !path.starts_with('/') && !path.starts_with('\\');
  const std::string native = platform::NativePath(path);
  return isRelative && path.find("..") == std::string::npos &&
         native.find("session.log") == std::string::npos;
}

// The content that the answer proves, if it does: all of it came, as announced, with the right
// hash, and memory was enough.
std::optional<std::string> ProvenContent(const FileRecord& record) {
  if (ToNumber(answer.sent.status) != 200 || !RequestPath(Settings.DataPath, record)) return {};
  const std::int32_t announced =
      answer.sent.length && answer.sent.length->size() < 32 ? ToNumber(*answer.sent.length) : -1;
  const bool cameWhole = !answer.isBroken && answer.hasEnded && announced >= 0 &&
                         answer.delivered.size() == static_cast<std::size_t>(announced);
  if (!cameWhole || DigestLike(record.transferHash, answer.delivered) != record.transferHash) {
    return {};
  }
  const std::int32_t listed = ToNumber(record.contentSize);
  if (listed < 0 || static_cast<std::size_t>(listed) > platform::kMemory) return {};
  const auto size = static_cast<std::size_t>(listed);
  std::size_t used = 0;
  if (record.compressed) return Expanded(answer.delivered, size, used);
  std::string content = answer.delivered;
  content.resize(size, '\0');
  return content;
}

// What is on disk: files with their content, folders with nothing.
std::map<std::string, std::string> Tree() {
  std::map<std::string, std::string> tree;
  for (const auto& entry : fs::recursive_directory_iterator(".")) {
    const std::string path = entry.path().lexically_relative(".").native();
    if (entry.is_regular_file()) tree[path] = *ReadFile(path);
  }
  return tree;
}

// A path that no disk refuses: plain folders, and a plain name.
bool IsOrdinary(std::string_view path) {
  char before = '\\';
  for (const char c : path) {
    const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    if (!isLetter && (c != '\\' || before == '\\')) return false;
    before = c;
  }
  return before != '\\' && path.size() < 200;
}

void CheckInstalled(const FileRecord& record, const std::string& content, bool goesOn) {
  Require(ReadFile(platform::NativePath(record.path)) == content, "a proven content is on disk",
          record.path);
  const bool isPatchers = record.path.find(Settings.SettingsPath) != std::string::npos ||
                          record.path.find("VelmoraUpdate.exe") != std::string::npos;
  Require(goesOn != isPatchers && (RestartRequested == 1) == isPatchers,
          "only the patcher's own files end the pass and ask for a restart", record.path);
  Require(IsVerifiedUnchanged(record), "an installed file is remembered", record.path);
  Require(test::EventsOf("box").empty(), "no box for a success", record.path);
}

void CheckUntouched(const std::map<std::string, std::string>& before, bool goesOn) {
  Require(Tree() == before, "without proof nothing changes on disk");
  Require(!goesOn && UpdateState == kNotRunning && RestartRequested == 0, "a failure ends it");
  Require(VerifyCache.Count() == 0, "nothing unproven is remembered");
  Require(test::EventsOf("box").size() == 1, "a failure shows one box");
}

}  // namespace

void CheckInput(std::string_view input) {
  PrepareAnswer(input);
  const FileRecord& record = answer.sent.record;
  if (!StaysInside(record.path)) return;
  EnterEmptyFolder();
  Settings = PatcherSettings();
  Settings.SettingsPath = "./VelmoraUpdate.dat";
  Settings.DataPath = "/data";
  UpdateState = kRunning;
  RestartRequested = 0;
  VerifyCache.Clear();
  test::ResetDialog();
  DiscardUnfinishedFiles();
  if (answer.sent.Has("old")) {
    const fs::path native = platform::NativePath(record.path);
    std::error_code error;
    if (native.has_parent_path()) fs::create_directories(native.parent_path(), error);
    WriteFile(native, answer.sent.values["old"]);
  }
  const auto before = Tree();

  const bool goesOn = DownloadFile(record);
  EndInstalling();
  const auto proven = ProvenContent(record);
  if (goesOn || RestartRequested != 0) {
    Require(proven.has_value(), "only what is proven is installed", record.path);
    CheckInstalled(record, *proven, goesOn);
  } else {
    Require(!proven || !IsOrdinary(record.path), "what is proven is installed", record.path);
    CheckUntouched(before, goesOn);
  }
  CloseIfOpen(RequestHandle);
}

}  // namespace velmora::fuzz
