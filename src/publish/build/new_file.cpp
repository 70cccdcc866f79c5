#include "publish/build/new_file.h"

#include <utility>

#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {

namespace fs = std::filesystem;

void FailToWrite(const fs::path& path, const std::string& reason) {
  throw PublishError(ShownPath(path) + ": can't be written: " + reason);
}

void FailToWrite(const fs::path& path, const std::error_code& error) {
  FailToWrite(path, platform::ErrorText(error));
}

NewFile::NewFile(fs::path path) : path_(std::move(path)) {
  if (path_.empty()) return;
  std::error_code error;
  platform::RemoveEntry(path_, error);
  if (error) FailToWrite(path_, error);
  platform::ClearStreamError();
  stream_.open(path_, std::ios::binary | std::ios::trunc);
  if (!stream_) FailToWrite(path_, platform::StreamError());
}

NewFile::~NewFile() {
  if (committed_ || path_.empty()) return;
  stream_.close();
  std::error_code ignored;
  platform::RemoveEntry(path_, ignored);
}

void NewFile::Write(const void* bytes, std::size_t count) {
  size_ += count;
  if (path_.empty()) return;
  stream_.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
  if (!stream_) FailToWrite(path_, platform::StreamError());
}

void NewFile::Commit() {
  if (!path_.empty()) stream_.close();
  if (!stream_) FailToWrite(path_, platform::StreamError());
  committed_ = true;
}

}  // namespace velmora::publish
