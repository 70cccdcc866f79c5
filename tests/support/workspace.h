// What a test of the engine works in: an empty folder as working directory, default settings, and
// helpers to put files there and to look at what came of them.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/loopback_server.h"

namespace velmora::test {

// A fresh folder that is the working directory as long as the object lives.
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
// The whole file; "(none)" if there is none.
[[nodiscard]] std::string ReadFile(const std::filesystem::path& path);
// All files below the working directory, with slashes, but for the log and the cache.
[[nodiscard]] std::map<std::string, std::string> FilesHere();

// The messages of session.log, without their time stamps and line ends' CR.
[[nodiscard]] std::vector<std::string> LogMessages();
// Those that hold `part`.
[[nodiscard]] std::vector<std::string> LogMessagesWith(const std::string& part);

[[nodiscard]] std::string Sha1(const std::string& bytes);
[[nodiscard]] std::string Md5(const std::string& bytes);
[[nodiscard]] std::string Compressed(const std::string& bytes);

// The FILE line of a file that the server holds as it is, compressed, or as `transfer`.
[[nodiscard]] std::string FileLine(const std::string& path, const std::string& content);
[[nodiscard]] std::string FileLine(const std::string& path, const std::string& transfer,
                                   const std::string& content);
[[nodiscard]] std::string CompressedLine(const std::string& path, const std::string& content);

// Working directory, settings, state words and dialog record as at the start of a process.
class EngineTest : public testing::Test {
 protected:
  EngineTest();
  ~EngineTest() override;

  // Starts a server that answers 200 with what `files` holds under a request's path, else 404, and
  // points the settings to it. The list is published as "/hashlist.dat".
  void Serve(std::map<std::string, std::string> files);
  // The same with a free hand.
  void Serve(LoopbackServer::Answer answer);
  // Carries out a run from UpdateFiles to the end of its worker. False if it didn't start.
  bool Run();
  // The paths that the server was asked for since it started.
  [[nodiscard]] std::vector<std::string> RequestedPaths() const;

  TemporaryFolder folder_;
  std::unique_ptr<LoopbackServer> server_;
};

}  // namespace velmora::test
