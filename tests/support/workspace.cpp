#include "support/workspace.h"

#include <zlib.h>

#include <fstream>
#include <random>
#include <sstream>

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

std::map<std::string, std::string> FilesHere() {
  std::map<std::string, std::string> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(".")) {
    const std::string name = entry.path().lexically_relative(".").generic_string();
    if (entry.is_regular_file() && name != "session.log" && name != kCacheFile) {
      files[name] = ReadFile(entry.path());
    }
  }
  return files;
}

std::vector<std::string> LogMessages() {
  constexpr std::size_t kTimeStamp = 22;
  std::vector<std::string> messages;
  std::istringstream log(ReadFile("session.log"));
  for (std::string line; std::getline(log, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.size() >= kTimeStamp) messages.push_back(line.substr(kTimeStamp));
  }
  return messages;
}

std::vector<std::string> LogMessagesWith(const std::string& part) {
  std::vector<std::string> found;
  for (const std::string& message : LogMessages()) {
    if (message.find(part) != std::string::npos) found.push_back(message);
  }
  return found;
}

namespace {

std::string DigestText(platform::DigestKind kind, const std::string& bytes) {
  std::int32_t error = 0;
  auto provider = platform::OpenDigestProvider(platform::KeySet::kDefault, error);
  if (provider == 0) provider = platform::OpenDigestProvider(platform::KeySet::kCreate, error);
  const auto digest = platform::CreateDigest(provider, kind, error);
  std::uint8_t buffer[64];
  std::uint32_t length = sizeof buffer;
  const auto half = static_cast<std::uint32_t>(bytes.size() / 2);
  const auto rest = static_cast<std::uint32_t>(bytes.size()) - half;
  EXPECT_TRUE(platform::FeedDigest(digest, bytes.data(), half, error) &&
              platform::FeedDigest(digest, bytes.data() + half, rest, error));
  EXPECT_TRUE(platform::GetDigest(digest, buffer, length, error));
  platform::DestroyDigest(digest);
  platform::CloseDigestProvider(provider);
  std::string text;
  for (std::uint32_t i = 0; i < length; ++i) {
    text += "0123456789ABCDEF"[buffer[i] >> 4];
    text += "0123456789ABCDEF"[buffer[i] & 15];
  }
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
  EXPECT_EQ(
      compress(reinterpret_cast<Bytef*>(stream.data()), &length,
               reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size())),
      Z_OK);
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

void EngineTest::Serve(std::map<std::string, std::string> files) {
  Serve(LoopbackServer::Serving(std::move(files)));
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
