#include "support/workspace.h"

#include <zlib.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>

#include "base/text.h"
#include "engine/record_set.h"
#include "engine/server_connection.h"
#include "engine/update_run.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "platform/digest.h"
#include "settings/patcher_settings.h"
#include "support/recording_dialog.h"

namespace velmora::test {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() : before_(fs::current_path()) {
  std::random_device random;
  path_ = fs::temp_directory_path() / ("velmora-test-" + std::to_string(random()));
  fs::create_directories(path_);
  fs::current_path(path_);
}

TemporaryFolder::~TemporaryFolder() {
  fs::current_path(before_);
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void WriteFile(const fs::path& path, const std::string& content) {
  if (path.has_parent_path()) fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return "(none)";
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

Files FilesHere() {
  Files files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(".")) {
    const std::string name = entry.path().lexically_relative(".").generic_string();
    if (entry.is_regular_file() && name != "session.log" && name != kCacheFile) {
      files[name] = ReadFile(entry.path());
    }
  }
  return files;
}

std::vector<std::string> LogMessagesWith(const std::string& part) {
  constexpr std::size_t kTimeStamp = 22;
  std::vector<std::string> messages;
  std::istringstream log(ReadFile("session.log"));
  for (std::string line; std::getline(log, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line.size() < kTimeStamp) continue;
    const std::string message = line.substr(kTimeStamp);
    if (message.find(part) != std::string::npos) messages.push_back(message);
  }
  return messages;
}

namespace {

std::string DigestText(platform::DigestKind kind, const std::string& bytes) {
  std::int32_t error = 0;
  auto provider = platform::OpenDigestProvider(platform::KeySet::kDefault, error);
  if (provider == 0) provider = platform::OpenDigestProvider(platform::KeySet::kCreate, error);
  const auto digest = platform::CreateDigest(provider, kind, error);
  std::uint8_t buffer[64];
  std::uint32_t length = sizeof buffer;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  EXPECT_TRUE(platform::FeedDigest(digest, bytes.data(), size, error) &&
              platform::GetDigest(digest, buffer, length, error));
  platform::DestroyDigest(digest);
  platform::CloseDigestProvider(provider);
  std::string text;
  for (std::uint32_t i = 0; i < length; ++i) text += FormatText("%02X", buffer[i]);
  return text;
}

}  // namespace

std::string Sha1(const std::string& bytes) {
  return DigestText(platform::DigestKind::kSha1, bytes);
}

std::string Md5(const std::string& bytes) { return DigestText(platform::DigestKind::kMd5, bytes); }

std::string Compressed(const std::string& bytes) {
  uLongf length = compressBound(static_cast<uLong>(bytes.size()));
  std::string stream(length, '\0');
  const auto* const source = reinterpret_cast<const Bytef*>(bytes.data());
  auto* const target = reinterpret_cast<Bytef*>(stream.data());
  EXPECT_EQ(compress(target, &length, source, static_cast<uLong>(bytes.size())), Z_OK);
  stream.resize(length);
  return stream;
}

std::string FileLine(const std::string& path, const std::string& transfer,
                     const std::string& content) {
  return "FILE : " + path + ", " + Sha1(transfer) + ", " + std::to_string(transfer.size()) + ", " +
         Sha1(content) + ", " + std::to_string(content.size()) + "\r\n";
}

std::string FileLine(const std::string& path, const std::string& content) {
  return FileLine(path, content, content);
}

std::string CompressedLine(const std::string& path, const std::string& content) {
  return FileLine(path + ".compressed", Compressed(content), content);
}

std::string CacheEntry(const std::string& path, const std::string& content) {
  const std::string fields = Sha1(content) + " " + std::to_string(content.size());
  return path + " " + fields + " " + fields + " 0\r\n";
}

EngineTest::EngineTest() {
  Settings = PatcherSettings();
  Settings.DataFile = "hashlist.dat";
  Settings.SettingsPath = "./VelmoraUpdate.dat";
  UpdateState = kNotRunning;
  RestartRequested = 0;
  RecheckPending = 0;
  UpdateSet.Clear();
  RemoveSet.Clear();
  VerifyCache.Clear();
  ResetDialog();
}

EngineTest::~EngineTest() {
  WaitForRunEnd();
  CloseIfOpen(RequestHandle);
  CloseIfOpen(ConnectionHandle);
  CloseIfOpen(SessionHandle);
}

void EngineTest::Serve(LoopbackServer::Answer answer) {
  server_ = std::make_unique<LoopbackServer>(std::move(answer));
  Settings.ServerHost = "127.0.0.1";
  Settings.ServerPort = server_->port();
}

void EngineTest::Serve(Files files) { Serve(LoopbackServer::Serving(std::move(files))); }

void EngineTest::Publish(const Files& files, const std::string& lines) {
  Files served = {{"/hashlist.dat", lines}};
  for (const auto& [path, content] : files) {
    served["/hashlist.dat"] += FileLine(path, content);
    std::string request = "/" + path;
    std::replace(request.begin(), request.end(), '\\', '/');
    served[request] = content;
  }
  Serve(std::move(served));
}

bool EngineTest::Run() {
  const bool started = UpdateFiles();
  WaitForRunEnd();
  return started;
}

std::vector<std::string> EngineTest::RequestedPaths() const {
  std::vector<std::string> paths;
  for (const ServedRequest& request : server_->Requests()) paths.push_back(request.path);
  return paths;
}

}  // namespace velmora::test
