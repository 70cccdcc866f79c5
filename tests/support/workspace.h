// What tests of the engine work in: an empty folder as working directory, default settings, and
// helpers that write files there and read the results.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/loopback_server.h"

namespace velmora::test {

// A new folder that is the working directory as long as the object lives.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path before_;
  std::filesystem::path path_;
};

void WriteFile(const std::filesystem::path& path, const std::string& content);
// The whole file, or "(none)".
[[nodiscard]] std::string ReadFile(const std::filesystem::path& path);
// Contents by path.
using Files = std::map<std::string, std::string>;
// All files below the working directory, with slashes, except the log and the cache.
[[nodiscard]] Files FilesHere();

// The messages of session.log that contain `part`, without time stamps and CR.
[[nodiscard]] std::vector<std::string> LogMessagesWith(const std::string& part);
[[nodiscard]] inline std::vector<std::string> LogMessages() { return LogMessagesWith(""); }

[[nodiscard]] std::string Sha1(const std::string& bytes);
[[nodiscard]] std::string Md5(const std::string& bytes);
[[nodiscard]] std::string Compressed(const std::string& bytes);

// The FILE line of a file that the server has as it is, compressed, or as `transfer`.
[[nodiscard]] std::string FileLine(const std::string& path, const std::string& content);
[[nodiscard]] std::string FileLine(const std::string& path, const std::string& transfer,
                                   const std::string& content);
[[nodiscard]] std::string CompressedLine(const std::string& path, const std::string& content);
// The cache's line for a file that the server has as it is.
[[nodiscard]] std::string CacheEntry(const std::string& path, const std::string& content);

// Working directory, settings, state words and dialog record as at the start of a process.
class EngineTest : public testing::Test {
 protected:
  EngineTest();
  ~EngineTest() override;

  // Starts a server and points the settings to it. The list is requested as "/hashlist.dat".
  void Serve(LoopbackServer::Answer answer);
  // The same with 200 for a request's path in `files`, else 404.
  void Serve(Files files);
  // The same with files by their listed paths, and a list of `lines` and the files' lines.
  void Publish(const Files& files, const std::string& lines = "");
  // A run, from UpdateFiles to the end of its worker. False if it didn't start.
  bool Run();
  // The paths that the server was asked for since it started.
  [[nodiscard]] std::vector<std::string> RequestedPaths() const;

  TemporaryFolder folder_;
  std::unique_ptr<LoopbackServer> server_;
};

}  // namespace velmora::test
