// Whenever the power fails, the next start finds nothing that the cache vouches for and the disk
// doesn't hold. A disk in memory stands in for the system's: after a loss of power it has all names
// and the whole cache, and of other files only what was flushed, which is the worst that can be.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <string>

#include "engine/record_set.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "platform/files.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

struct ModelFile {
  std::string content;
  std::string flushed;
};

struct ModelDisk {
  std::map<std::string, std::shared_ptr<ModelFile>> files;
  bool flushes = true;
  int changes = 0;

  void Put(const std::string& path, const std::string& content) {
    files[path] = std::make_shared<ModelFile>(ModelFile{content, content});
  }
  [[nodiscard]] std::string ContentOf(const std::string& path) const {
    const auto found = files.find(path);
    return found == files.end() ? "(none)" : found->second->content;
  }
  // What a start would believe if the power failed now.
  void Changed(const std::string& change) {
    if (change.ends_with(".log")) return;
    ++changes;
    const std::string cache = ContentOf(kCacheFile);
    for (const FileRecord& record : UpdateSet) {
      const auto file = files.find(record.path);
      const bool isBelieved = cache.find(CacheLine(record).substr(0, 60)) != std::string::npos;
      if (!isBelieved || file == files.end()) continue;
      EXPECT_EQ(Sha1(file->second->flushed), record.contentHash) << record.path << " at " << change;
    }
  }
};
ModelDisk disk;

}  // namespace
}  // namespace velmora::test

namespace velmora::platform {
namespace {

using test::disk;

struct OpenFile {
  std::string path;
  std::shared_ptr<test::ModelFile> file;
  std::size_t read = 0;
};
std::map<std::intptr_t, OpenFile> opened;
std::intptr_t last = 0;

std::intptr_t Open(const std::string& path, bool creates) {
  auto& file = creates ? disk.files[path] : disk.files.at(path);
  if (file == nullptr) file = std::make_shared<test::ModelFile>();
  opened[++last] = {path, file};
  return last;
}

bool IsLinked(const std::string& path) { return path.find("linked") != std::string::npos; }

}  // namespace

bool FileExists(const std::string& path) { return disk.files.contains(path); }
bool IsDirectory(const std::string&) { return false; }
bool IsLink(const std::string& path) { return IsLinked(path); }
bool RemoveFile(const std::string& path) {
  const bool removed = disk.files.erase(path) > 0;
  disk.Changed("remove " + path);
  return removed;
}
bool RemoveEmptyDirectory(const std::string&) { return false; }
bool CopyFileOver(const std::string&, const std::string&) { return false; }
bool MoveFileOver(const std::string& from, const std::string& to) {
  if (IsLinked(to) || !disk.files.contains(from)) return false;
  disk.files[to] = disk.files[from];
  disk.files.erase(from);
  disk.Changed("move to " + to);
  return true;
}
bool CanBeWritten(const std::string& path) { return FileExists(path); }
bool IsHeldByAnother(std::int32_t) { return false; }
bool IsDiskTrouble(std::int32_t) { return false; }
bool FlushFolders(const std::set<std::string>& directories) {
  if (!disk.flushes) return false;
  for (const auto& [path, file] : disk.files) {
    const std::size_t end = path.rfind('\\');
    const std::string folder = end == std::string::npos ? "" : path.substr(0, end + 1);
    if (directories.contains(folder)) file->flushed = file->content;
  }
  return true;
}
bool MakeDirectoriesOf(const std::string&) { return true; }

InputFile::InputFile(const std::string& path) : file_(0) {
  if (!disk.files.contains(path)) return;
  file_ = Open(path, false);
  size_ = static_cast<std::uint32_t>(opened[file_].file->content.size());
}
InputFile::~InputFile() { opened.erase(file_); }
bool InputFile::IsOpen() const { return file_ != 0; }
std::uint32_t InputFile::Size() const { return size_; }
std::uint32_t InputFile::Read(void* buffer, std::uint32_t size) {
  if (!IsOpen()) return 0;
  OpenFile& open = opened[file_];
  const std::size_t count = open.file->content.copy(static_cast<char*>(buffer), size, open.read);
  open.read += count;
  return static_cast<std::uint32_t>(count);
}

OutputFile::OutputFile(const std::string& path, Mode mode) : file_(Open(path, true)) {
  if (mode == Mode::kAppend) return;
  opened[file_].file->content.clear();
  opened[file_].file->flushed.clear();
  disk.Changed("open " + path);
}
OutputFile::~OutputFile() { opened.erase(file_); }
bool OutputFile::IsOpen() const { return true; }
bool OutputFile::Write(const void* data, std::size_t size) {
  opened[file_].file->content.append(static_cast<const char*>(data), size);
  disk.Changed("write " + opened[file_].path);
  return true;
}
bool OutputFile::Flush() {
  opened[file_].file->flushed = opened[file_].file->content;
  return true;
}
bool OutputFile::Close() { return true; }

std::optional<std::vector<DirectoryEntry>> ListDirectory(const std::string&) { return {}; }

std::int32_t LastSystemError() { return 1; }
std::string SystemErrorText(std::int32_t) { return "refused"; }

}  // namespace velmora::platform

namespace velmora::test {
namespace {

class PowerCut : public EngineTest {
 protected:
  // Files that have gone while the cache still vouches for them, in one step and in place, and one
  // that is written in place over an older edition.
  void Install(const std::string& lastLine = "") {
    const std::map<std::string, std::string> game = {
        {"a", "first"}, {"d\\b", "second"}, {"linked_1", "third"}, {"linked_22", "fourth"}};
    std::map<std::string, std::string> served;
    std::string cache;
    for (const auto& [path, content] : game) {
      served["/hashlist.dat"] += FileLine(path, content);
      served["/" + (path == "d\\b" ? "d/b" : path)] = content;
      const std::string hash = Sha1(path == "linked_1" ? "older" : content);
      const std::string size = std::to_string(content.size());
      cache += path + " " + hash + " " + size + " " + hash + " " + size + " 0\r\n";
    }
    served["/hashlist.dat"] += lastLine;
    disk = {};
    disk.Put(kCacheFile, cache);
    disk.Put("linked_1", "older");
    Serve(served);
    ResetDialog();
    ASSERT_TRUE(Run());
  }
};

TEST_F(PowerCut, AtEachChangeNothingIsBelievedThatTheDiskDoesNotHold) {
  Install();
  EXPECT_EQ(UpdateState, kEnded);
  EXPECT_GT(disk.changes, 20);
  for (const char* kept : {"a ", "d\\b ", "linked_1 ", "linked_22 "}) {
    EXPECT_NE(disk.ContentOf(kCacheFile).find(kept), std::string::npos) << kept;
  }
  Install("FILE : missing_on_server, X, 1, X, 1\r\n");
  EXPECT_EQ(UpdateState, kNotRunning);
  EXPECT_EQ(disk.ContentOf("d\\b"), "second");
  EXPECT_NE(disk.ContentOf(kCacheFile), "(none)");
}

TEST_F(PowerCut, DiskThatDoesNotFlushIsNotVouchedFor) {
  disk = {};
  Serve({{"/hashlist.dat", FileLine("a", "first")}, {"/a", "first"}});
  disk.flushes = false;
  ASSERT_TRUE(Run());
  EXPECT_EQ(UpdateState, kEnded);
  EXPECT_EQ(disk.ContentOf("a"), "first");
  EXPECT_EQ(disk.ContentOf(kCacheFile), "(none)");
}

}  // namespace
}  // namespace velmora::test
