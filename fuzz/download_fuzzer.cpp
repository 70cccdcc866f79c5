// The way of a body from the connection to the disk: whatever a server sends, a file changes only
// when the record's proof and, for a compressed one, its expansion have succeeded.
//
// Input: lines of the record and of the answer, an empty line, the body.
//   path, hash, size, content-hash, content-size   the record; "=" is what would be right
//   compressed        the record is compressed
//   pack              the body given is the content, served as a zlib stream
//   status, length    the answer's; 200 and the body's length if there is no such line
//   chunks N...       bytes that become available in turn; then the rest of the body
//   give N            a read gives at most this many
//   break N           the read behind this many bytes fails
//   old TEXT          what the file held before
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>

#include "base/text.h"
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
  std::string status;
  std::optional<std::string> length;
  std::string body;
  std::vector<std::int32_t> chunks;
  std::size_t give = std::numeric_limits<std::size_t>::max();
  std::size_t breakAt = std::numeric_limits<std::size_t>::max();

  std::size_t at = 0;     // of the body
  std::size_t chunk = 0;  // the one that is available
  std::string delivered;  // all bytes that reads have given
  bool isBroken = false;
  bool hasEnded = false;  // the reader has met the end
};
Answer answer;

}  // namespace

// Blocks beyond a small memory can't be had.
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
  const auto text = field == HttpField::kStatusCode ? answer.status : answer.length;
  return text && text->size() < bufferSize ? text : std::nullopt;
}

// A server may announce more than there is: the number is the input's.
std::uint32_t QueryHttpDataAvailable(HttpHandle) {
  std::uint32_t available = 0;
  if (answer.chunk < answer.chunks.size()) {
    available = static_cast<std::uint32_t>(answer.chunks[answer.chunk++]);
  } else if (answer.at < answer.body.size()) {
    available = static_cast<std::uint32_t>(answer.body.size() - answer.at);
  } else if (answer.at >= answer.breakAt) {
    available = 1;
  }
  answer.hasEnded = available == 0;
  return available;
}

bool ReadHttp(HttpHandle, void* buffer, std::uint32_t size, std::uint32_t& read) {
  answer.isBroken = answer.at >= answer.breakAt;
  const std::size_t left = answer.body.size() - answer.at;
  read = static_cast<std::uint32_t>(
      answer.isBroken ? 0 : std::min({std::size_t{size}, left, answer.give}));
  std::memcpy(buffer, answer.body.data() + answer.at, read);
  answer.delivered.append(answer.body, answer.at, read);
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

std::string Or(const Parts& parts, std::string_view name, const std::string& right) {
  const std::string value = parts.Value(name);
  if (value == "=" || !parts.Has(name)) return right;
  return value;
}

void PrepareAnswer(const Parts& parts) {
  answer = platform::Answer();
  answer.body = parts.Has("pack") ? Compressed(parts.Body()) : parts.Body();
  answer.status = Or(parts, "status", "200");
  if (parts.Value("length") != "none") {
    answer.length = Or(parts, "length", std::to_string(answer.body.size()));
  }
  answer.chunks = parts.Numbers("chunks");
  const auto first = [&parts](std::string_view name, std::size_t& number) {
    const std::vector<std::int32_t> numbers = parts.Numbers(name);
    if (!numbers.empty()) number = static_cast<std::size_t>(std::max(numbers[0], 0));
  };
  first("give", answer.give);
  first("break", answer.breakAt);
}

FileRecord RecordOf(const Parts& parts) {
  const std::string content = parts.Body();
  const std::string hash = parts.Value("hash");
  return {.path = Or(parts, "path", "file"),
          .transferHash = hash == "md5" ? DigestLike(std::string(32, ' '), answer.body)
                                        : Or(parts, "hash", DigestLike("", answer.body)),
          .transferSize = Or(parts, "size", std::to_string(answer.body.size())),
          .contentHash = Or(parts, "content-hash", DigestLike("", content)),
          .contentSize = Or(parts, "content-size", std::to_string(content.size())),
          .compressed = parts.Has("compressed")};
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
  if (ToNumber(answer.status) != 200 || !RequestPath(Settings.DataPath, record)) return {};
  const std::int32_t announced =
      answer.length && answer.length->size() < 32 ? ToNumber(*answer.length) : -1;
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

void WriteOldFile(const FileRecord& record, const std::string& content) {
  const fs::path native = platform::NativePath(record.path);
  std::error_code error;
  if (native.has_parent_path()) fs::create_directories(native.parent_path(), error);
  WriteFile(native, content);
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

bool AsksForRestart(const FileRecord& record) {
  return record.path.find(Settings.SettingsPath) != std::string::npos ||
         record.path.find("VelmoraUpdate.exe") != std::string::npos;
}

void CheckInstalled(const FileRecord& record, const std::string& content, bool goesOn) {
  const auto now = ReadFile(fs::path(platform::NativePath(record.path)));
  Require(now == content, "a proven content stands on disk", record.path);
  Require(goesOn != AsksForRestart(record), "only the patcher's own files end the pass",
          record.path);
  Require((RestartRequested == 1) == AsksForRestart(record), "and they ask for a restart",
          record.path);
  Require(IsVerifiedUnchanged(record), "an installed file is remembered", record.path);
  Require(test::EventsOf("box").empty(), "no box for a success", record.path);
}

void CheckUntouched(const FileRecord& record, const std::map<std::string, std::string>& before,
                    bool goesOn) {
  Require(Tree() == before, "without proof nothing changes on disk", record.path);
  Require(!goesOn && UpdateState == kNotRunning && RestartRequested == 0, "a failure ends the pass",
          record.path);
  Require(VerifyCache.Count() == 0, "nothing unproven is remembered", record.path);
  Require(test::EventsOf("box").size() == 1, "a failure shows one box", record.path);
}

void StartAnew() {
  EnterEmptyFolder();
  Settings = PatcherSettings();
  Settings.SettingsPath = "./VelmoraUpdate.dat";
  Settings.DataPath = "/data";
  UpdateState = kRunning;
  RestartRequested = 0;
  VerifyCache.Clear();
  test::ResetDialog();
}

}  // namespace
}  // namespace velmora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora;
  using namespace velmora::fuzz;
  const Parts parts(TextOf(data, size));
  PrepareAnswer(parts);
  const FileRecord record = RecordOf(parts);
  if (!StaysInside(record.path)) return 0;
  StartAnew();
  DiscardUnfinishedFiles();
  if (parts.Has("old")) WriteOldFile(record, parts.Value("old"));
  const auto before = Tree();

  const bool goesOn = DownloadFile(record);
  EndInstalling();
  const auto proven = ProvenContent(record);
  if (goesOn || RestartRequested != 0) {
    Require(proven.has_value(), "only what is proven is installed", record.path);
    CheckInstalled(record, *proven, goesOn);
  } else {
    Require(!proven || !IsOrdinary(record.path), "what is proven is installed", record.path);
    CheckUntouched(record, before, goesOn);
  }
  CloseIfOpen(RequestHandle);
  return 0;
}
