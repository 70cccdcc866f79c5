// After a power cut at any moment, the next start finds nothing that the cache vouches for and the
// disk doesn't hold. A disk in memory replaces the system's. In the worst case a power cut leaves
// it all names and the whole cache, and of other files only what was flushed.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/record_set.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "platform/files.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

struct ModelFile {
  std::string content;
  std::string flushed;
};

struct OpenFile {
  std::string path;
  std::shared_ptr<ModelFile> file;
  std::size_t read = 0;
};

struct ModelDisk {
  std::map<std::string, std::shared_ptr<ModelFile>> files;
  std::vector<OpenFile> opened;  // by handle
  bool flushes = true;
  int changes = 0;

  [[nodiscard]] bool Has(const std::string& path) const { return files.contains(path); }
  [[nodiscard]] std::string ContentOf(const std::string& path) const {
    return Has(path) ? files.at(path)->content : "(none)";
  }
  std::intptr_t Open(const std::string& path) {
    auto& file = files[path];
    if (file == nullptr) file = std::make_shared<ModelFile>();
    opened.push_back({path, file});
    return static_cast<std::intptr_t>(opened.size()) - 1;
  }
  OpenFile& At(std::intptr_t handle) { return opened[static_cast<std::size_t>(handle)]; }

  // Checks what a start would believe if the power failed now.
  void Changed(const std::string& change) {
    if (change.ends_with(".log")) return;
    ++changes;
    const std::string cache = ContentOf(kCacheFile);
    for (const FileRecord& record : UpdateSet) {
      const bool isBelieved = cache.find(CacheLine(record).substr(0, 60)) != std::string::npos;
      if (!isBelieved || !Has(record.path)) continue;
      EXPECT_EQ(Sha1(files[record.path]->flushed), record.contentHash) << record.path << change;
    }
  }
};
ModelDisk disk;

bool IsLinked(const std::string& path) { return path.find("linked") != std::string::npos; }

}  // namespace
}  // namespace velmora::test

namespace velmora::platform {

using test::disk;
using test::IsLinked;

bool FileExists(const std::string& path) { return disk.Has(path); }
bool IsDirectory(const std::string&) { return false; }
bool IsLink(const std::string& path) { return IsLinked(path); }
bool RemoveFile(const std::string& path) {
  const bool removed = disk.files.erase(path) > 0;
  disk.Changed(" removed " + path);
  return removed;
}
bool RemoveEmptyDirectory(const std::string&) { return false; }
bool CopyFileOver(const std::string&, const std::string&) { return false; }
bool MoveFileOver(const std::string& from, const std::string& to) {
  if (IsLinked(to) || !disk.Has(from)) return false;
  disk.files[to] = disk.files[from];
  disk.files.erase(from);
  disk.Changed(" moved to " + to);
  return true;
}
bool CanBeWritten(const std::string& path) { return disk.Has(path); }
bool IsHeldByAnother(std::int32_t) { return false; }
bool IsDiskTrouble(std::int32_t) { return false; }
bool FlushFolders(const std::set<std::string>& directories) {
  if (!disk.flushes) return false;
  for (const auto& [path, file] : disk.files) {
    // npos + 1 is 0, for the working directory
    if (directories.contains(path.substr(0, path.rfind('\\') + 1))) file->flushed = file->content;
  }
  return true;
}
bool MakeDirectoriesOf(const std::string&) { return true; }
std::optional<std::vector<DirectoryEntry>> ListDirectory(const std::string&) { return {}; }
std::int32_t LastSystemError() { return 1; }
std::string SystemErrorText(std::int32_t) { return "refused"; }

InputFile::InputFile(const std::string& path) : file_(disk.Has(path) ? disk.Open(path) : -1) {
  if (IsOpen()) size_ = static_cast<std::uint32_t>(disk.ContentOf(path).size());
}
InputFile::~InputFile() = default;
bool InputFile::IsOpen() const { return file_ >= 0; }
std::uint32_t InputFile::Size() const { return size_; }
std::uint32_t InputFile::Read(void* buffer, std::uint32_t size) {
  if (!IsOpen()) return 0;
  auto& [path, file, read] = disk.At(file_);
  const std::size_t count = file->content.copy(static_cast<char*>(buffer), size, read);
  read += count;
  return static_cast<std::uint32_t>(count);
}

OutputFile::OutputFile(const std::string& path, Mode mode) : file_(disk.Open(path)) {
  if (mode == Mode::kAppend) return;
  *disk.At(file_).file = {};
  disk.Changed(" opened " + path);
}
OutputFile::~OutputFile() = default;
bool OutputFile::IsOpen() const { return true; }
bool OutputFile::Write(const void* data, std::size_t size) {
  disk.At(file_).file->content.append(static_cast<const char*>(data), size);
  disk.Changed(" written " + disk.At(file_).path);
  return true;
}
bool OutputFile::Flush() {
  disk.At(file_).file->flushed = disk.At(file_).file->content;
  return true;
}
bool OutputFile::Close() { return true; }

}  // namespace velmora::platform

namespace velmora::test {
namespace {

using PowerCut = EngineTest;

// Files that have gone while the cache still vouches for them, installed in one step and in place,
// and one that is written in place over an older edition.
TEST_F(PowerCut, AtEachChangeNothingIsBelievedThatTheDiskDoesNotHold) {
  const Files game = {
      {"a", "first"}, {"d\\b", "second"}, {"linked_1", "third"}, {"linked_22", "4"}};
  std::string cache = CacheEntry("linked_1", "older");
  for (const auto& [path, content] : game) {
    if (path != "linked_1") cache += CacheEntry(path, content);
  }
  // The second run fails at its last line.
  for (const char* lastLine : {"", "FILE : missing_on_server, X, 1, X, 1\r\n"}) {
    disk = {};
    disk.files[kCacheFile] = std::make_shared<ModelFile>(ModelFile{cache, cache});
    disk.files["linked_1"] = std::make_shared<ModelFile>(ModelFile{"older", "older"});
    Publish(game, lastLine);
    ASSERT_TRUE(Run());
    EXPECT_EQ(UpdateState, *lastLine == '\0' ? kEnded : kNotRunning);
    EXPECT_GT(disk.changes, 20);
    for (const auto& [path, content] : game) {
      EXPECT_EQ(disk.ContentOf(path), content);
      EXPECT_NE(disk.ContentOf(kCacheFile).find(CacheEntry(path, content)), std::string::npos);
    }
  }
}

TEST_F(PowerCut, DiskThatDoesNotFlushIsNotVouchedFor) {
  disk = {};
  disk.flushes = false;
  Publish({{"a", "first"}});
  ASSERT_TRUE(Run());
  EXPECT_EQ(UpdateState, kEnded);
  EXPECT_EQ(disk.ContentOf("a"), "first");
  EXPECT_EQ(disk.ContentOf(kCacheFile), "(none)");
}

}  // namespace
}  // namespace velmora::test
