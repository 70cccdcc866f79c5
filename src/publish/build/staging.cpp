#include "publish/build/staging.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/files.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const fs::path& path, const std::error_code& error) {
  throw PublishError(path.native() + ": can't be written: " + error.message());
}

// A stream doesn't say why it failed, but the system call that it made last does.
std::error_code LastError() { return {errno == 0 ? EIO : errno, std::generic_category()}; }

}  // namespace

NewFile::NewFile(fs::path path) : path_(std::move(path)) {
  stream_.open(path_, std::ios::binary | std::ios::trunc);
  if (!stream_) Fail(path_, LastError());
}

NewFile::~NewFile() {
  if (committed_) return;
  stream_.close();
  std::error_code ignored;
  fs::remove(path_, ignored);
}

void NewFile::Write(const void* bytes, std::size_t count) {
  stream_.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
  if (!stream_) Fail(path_, LastError());
  size_ += count;
}

void NewFile::Commit() {
  stream_.close();
  if (!stream_) Fail(path_, LastError());
  committed_ = true;
}

Staging::Staging(const fs::path& output) : folder_(output / kFolder) {
  std::error_code error;
  fs::create_directories(output, error);
  if (error) Fail(output, error);
  const bool isNew = fs::create_directory(folder_, error);
  if (error) Fail(folder_, error);
  if (!isNew) {
    throw PublishError(folder_.native() +
                       " exists: another build is running, or one was killed; if none is "
                       "running, remove this folder");
  }
}

Staging::~Staging() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

fs::path Staging::At(std::size_t number) const { return folder_ / std::to_string(number); }

void Staging::PrepareTarget(const fs::path& target) const {
  std::error_code error;
  fs::create_directories(target.parent_path(), error);
  if (error) Fail(target, error);
  if (fs::is_directory(target, error)) {
    Fail(target, std::make_error_code(std::errc::is_a_directory));
  }
}

void Staging::Sync() const {
  if (platform::FlushDirectory(folder_.native())) return;
  throw PublishError(folder_.native() + ": can't be written: " +
                     platform::SystemErrorText(platform::LastSystemError()));
}

void Staging::Publish(std::size_t number, const fs::path& target) const {
  std::error_code error;
  fs::rename(At(number), target, error);
  if (error) Fail(target, error);
}

}  // namespace velmora::publish
