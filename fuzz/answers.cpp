// Targets for a record and the answer to its request: what the patcher installs of it, and what
// `velmora-publish verify` says of it. Input: lines "name value", an empty line, the body.
//   path, hash, size, content-hash, content-size
//                     the record's fields, right unless they are named
//   compressed        the record is compressed
//   pack              the body given is the content, served as a zlib stream
//   tail TEXT         follows the body
//   status, length    of the answer, 200 and the body's length unless they are named; or "none"
//   pieces N...       how many bytes become available in turn; then the rest
//   broken N          the transfer breaks off after N bytes
//   old TEXT          what the file held before
#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "base/data_block.h"
#include "base/text.h"
#include "engine/download.h"
#include "engine/install.h"
#include "engine/request_path.h"
#include "engine/server_connection.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "platform/http.h"
#include "platform/posix/native_path.h"
#include "publish/verify/payload_check.h"
#include "settings/patcher_settings.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"
#include "targets.h"

namespace velmora::fuzz {

struct Answer {
  explicit Answer(std::string_view input);
  // The value, or `right` if the input doesn't name it.
  [[nodiscard]] std::string Get(const std::string& name, const std::string& right) const {
    return values.contains(name) ? values.at(name) : right;
  }

  std::map<std::string, std::string> values;
  FileRecord record;
  std::string status;
  std::optional<std::string> length;
  std::string body;  // what comes of it
  std::string size;  // of all
  std::vector<std::size_t> pieces;
  bool breaks = false;

  // Of the connection under `download`.
  std::size_t piece = 0;  // the next to become available
  std::string delivered;  // by reads
  bool hasEnded = false;  // the reader has met the end
};

Answer::Answer(std::string_view input) {
  for (std::string_view line : LinesOf(TakeUntil("\n\n", input))) {
    const std::string name(TakeUntil(" ", line));
    values.emplace(name, line);
  }
  const std::string content(input);
  body = (values.contains("pack") ? test::Compressed(content) : content) + Get("tail", "");
  size = std::to_string(body.size());
  record = {.path = Get("path", "file"),
            .transferHash = Get("hash", test::Sha1(body)),
            .transferSize = Get("size", size),
            .contentHash = Get("content-hash", test::Sha1(content)),
            .contentSize = Get("content-size", std::to_string(content.size())),
            .compressed = values.contains("compressed")};
  status = Get("status", "200");
  if (Get("length", "") != "none") length = Get("length", size);
  std::istringstream words(Get("pieces", ""));
  for (std::size_t bytes = 0; words >> bytes;) pieces.push_back(bytes);
  breaks = values.contains("broken");
  body = body.substr(0, static_cast<std::uint32_t>(ToNumber(Get("broken", size))));
}

static bool HasHash(const std::string& bytes, const std::string& hash) {
  return (hash.size() == 32 ? test::Md5(bytes) : test::Sha1(bytes)) == hash;
}

constexpr std::size_t kMemory = std::size_t{1} << 20;

// Whether libdeflate, which reads some streams that zlib refuses, makes the same of this one.
static bool ExpandsAlike(const std::string& stream, const std::string& content) {
  static libdeflate_decompressor* const decompressor = libdeflate_alloc_decompressor();
  std::string expanded(content.size(), '\0');
  std::size_t size = 0;
  return libdeflate_zlib_decompress(decompressor, stream.data(), stream.size(), expanded.data(),
                                    expanded.size(), &size) == LIBDEFLATE_SUCCESS &&
         expanded.substr(0, size) == content;
}

// What a patcher with little memory makes of a body, if it has the record's hash; `used` is the
// length of a stream.
static std::optional<std::string> Content(const FileRecord& record, const std::string& body,
                                          uLong& used) {
  uLongf size = static_cast<uLongf>(ToNumber(record.contentSize));
  if (!HasHash(body, record.transferHash) || size > kMemory) return std::nullopt;
  std::string content = body;
  content.resize(size);
  used = body.size();
  if (record.compressed &&
      uncompress2(reinterpret_cast<Bytef*>(content.data()), &size,
                  reinterpret_cast<const Bytef*>(body.data()), &used) != Z_OK) {
    return std::nullopt;
  }
  content.resize(size);
  Require(!record.compressed || ExpandsAlike(body, content), "every reader expands it", body);
  return content;
}

static Answer answer("");

}  // namespace velmora::fuzz

// Blocks beyond a small memory are unavailable.
bool velmora::DataBlock::Allocate(std::size_t size) {
  Release();
  return size <= fuzz::kMemory && Hold(std::malloc(size + 1), size);
}
bool velmora::DataBlock::AllocateZeroed(std::size_t size) {
  Release();
  return size <= fuzz::kMemory && Hold(std::calloc(size + 1, 1), size);
}

namespace velmora::platform {

using fuzz::answer;

HttpHandle OpenHttpSession(const char*) { return 1; }
void SetHttpTimeouts(HttpHandle, std::uint32_t) {}
HttpHandle ConnectHttp(HttpHandle, const std::string&, std::uint16_t, const std::string&,
                       const std::string&) {
  return 2;
}
HttpHandle OpenHttpGet(HttpHandle, const std::string&) { return 3; }
void SendHttpRequest(HttpHandle) {}
void CloseHttpHandle(HttpHandle) {}

std::optional<std::string> QueryHttpField(HttpHandle, HttpField field, std::size_t bufferSize) {
  const auto text = field == HttpField::kStatusCode ? answer.status : answer.length;
  return text && text->size() < bufferSize ? text : std::nullopt;
}

// A server may announce more than there is.
HttpFailure QueryHttpFailure(HttpHandle) { return HttpFailure::kNone; }

std::optional<std::string> QueryHttpRedirect(HttpHandle) { return std::nullopt; }

std::uint32_t QueryHttpDataAvailable(HttpHandle) {
  const std::size_t left = answer.body.size() - answer.delivered.size() + (answer.breaks ? 1 : 0);
  const bool isNamed = answer.piece < answer.pieces.size();
  const auto available = static_cast<std::uint32_t>(isNamed ? answer.pieces[answer.piece++] : left);
  answer.hasEnded = available == 0;
  return available;
}

bool ReadHttp(HttpHandle, void* buffer, std::uint32_t size, std::uint32_t& read) {
  const std::string bytes = answer.body.substr(answer.delivered.size(), size);
  read = static_cast<std::uint32_t>(bytes.size());
  std::memcpy(buffer, bytes.data(), read);
  answer.delivered += bytes;
  answer.hasEnded = read == 0 && !answer.breaks;
  return read > 0 || !answer.breaks;
}

}  // namespace velmora::platform

namespace velmora::fuzz {

// Keeps the target inside its folder: a list is trusted, a fuzzer isn't.
static bool StaysInside(const std::string& path) {
  const std::string native = platform::NativePath(path);
  return !native.starts_with('/') && path.find("..") == std::string::npos &&
         native.find("session.log") == std::string::npos &&
         native.find(kCacheFile) == std::string::npos;
}

// A path that no disk refuses: plain folders, and a plain name.
static bool IsOrdinary(const std::string& path) {
  return path.size() < 200 && ("\\" + path + "\\").find("\\\\") == std::string::npos &&
         path.find_first_not_of("\\abcdefghijklmnopqrstuvwxyz") == std::string::npos;
}

// Whatever a server sends, a file changes only if the whole answer came and proves its content.
void CheckDownload(std::string_view input) {
  answer = Answer(input);
  const FileRecord& record = answer.record;
  if (!StaysInside(record.path)) return;
  const test::TemporaryFolder folder;
  Settings = PatcherSettings();
  Settings.SettingsPath = "./VelmoraUpdate.dat";
  Settings.DataPath = "/data";
  UpdateState = kRunning;
  RestartRequested = 0;
  VerifyCache.Clear();
  test::ResetDialog();
  DiscardUnfinishedFiles();
  const std::string native = platform::NativePath(record.path);
  if (IsOrdinary(record.path)) test::WriteFile(native, answer.Get("old", ""));
  auto expected = test::FilesHere();

  const bool goesOn = DownloadFile(record);
  EndInstalling();
  CloseIfOpen(RequestHandle);
  const std::string length = answer.length.value_or("-1");
  const bool isProof = ToNumber(answer.status) == 200 && answer.hasEnded && length.size() < 32 &&
                       ToNumber(length) == static_cast<std::int64_t>(answer.delivered.size()) &&
                       RequestPath(Settings.DataPath, record);
  uLong used = 0;
  const auto content = isProof ? Content(record, answer.delivered, used) : std::nullopt;
  const bool isInstalled = goesOn || RestartRequested != 0;
  Require(isInstalled ? content.has_value() : !content || !IsOrdinary(record.path),
          "proven content is installed, nothing else", record.path);
  if (isInstalled) expected[native] = *content;
  Require(test::FilesHere() == expected, "no other file changes", record.path);
  Require(IsVerifiedUnchanged(record) == isInstalled, "what is installed is remembered", input);
  Require(test::EventsOf("box").size() == (isInstalled ? 0 : 1), "a failure shows a box", input);
  Require(UpdateState == (isInstalled ? kRunning : kNotRunning), "a failure ends the run", input);
}

using namespace publish;

static std::vector<Problem> Check(const Answer& sent, const std::vector<std::size_t>& pieces) {
  return publish::CheckPayload(sent.record, [&](Sink& sink) {
    ResponseHead head;
    head.status = ToNumber(sent.status);
    head.length = sent.length;
    if (!sink.TakeHead(head)) return DeliveryEnd::kUnwanted;
    std::string rest = sent.body;
    for (std::size_t i = 0; !rest.empty(); ++i) {
      const std::size_t wanted = i < pieces.size() && pieces[i] > 0 ? pieces[i] : rest.size();
      const std::string taken = rest.substr(0, wanted);
      const auto* const bytes = reinterpret_cast<const std::uint8_t*>(taken.data());
      if (!sink.TakeBytes(bytes, taken.size())) return DeliveryEnd::kUnwanted;
      rest.erase(0, wanted);
      const std::int32_t announced = ToNumber(head.length.value_or(""));
      Require(head.status != 200 || head.length != std::to_string(announced) ||
                  sent.body.size() - rest.size() <= static_cast<std::size_t>(announced),
              "nothing beyond the announced length is taken", sent.body);
    }
    return sent.breaks ? DeliveryEnd::kBroken : DeliveryEnd::kEnded;
  });
}

// Whatever a server sends, verify passes exactly what a check of the whole body at once passes,
// however the body is cut.
void CheckPayload(std::string_view input) {
  const Answer sent(input);
  const std::vector<Problem> problems = Check(sent, {});
  const std::vector<Problem> again = Check(sent, sent.pieces);
  Require(problems.size() <= 1 && again.size() == problems.size() &&
              (problems.empty() || problems[0].kind == again[0].kind),
          "at most one problem, the same one however the body is cut", input);

  const FileRecord& record = sent.record;
  const bool isPassed = problems.empty() || problems[0].isWarning;
  const bool isWhole = ToNumber(sent.status) == 200 && !sent.breaks && sent.length;
  Require(!isPassed || isWhole, "only a whole answer passes", input);
  if (!CheckRecord(record).empty()) return;
  uLong used = 0;
  const auto content = Content(record, sent.body, used);
  const bool isRight = isWhole && content && HasHash(*content, record.contentHash) &&
                       std::to_string(ToNumber(record.transferSize)) == sent.size &&
                       content->size() == static_cast<std::size_t>(ToNumber(record.contentSize));
  Require(!isPassed || isRight, "what passes is right", input);
  Require(isPassed || !isRight || sent.length != sent.size, "what is right passes", input);
  Require(!isPassed || problems.empty() == (used == sent.body.size()), "a tail is warned of",
          input);
}

}  // namespace velmora::fuzz
