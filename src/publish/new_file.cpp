#include "publish/new_file.h"

#include <utility>

#include "publish/publish_error.h"

namespace velmora::publish {

namespace fs = std::filesystem;

NewFile::NewFile(fs::path target) : target_(std::move(target)), temporary_(target_) {
  temporary_ += ".publishing";
  std::error_code error;
  fs::create_directories(target_.parent_path(), error);
  stream_.open(temporary_, std::ios::binary | std::ios::trunc);
  if (!stream_) throw PublishError(temporary_.native() + ": can't be written");
}

NewFile::~NewFile() {
  stream_.close();
  std::error_code ignored;
  fs::remove(temporary_, ignored);
}

void NewFile::Write(const void* bytes, std::size_t count) {
  stream_.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
  if (!stream_) throw PublishError(temporary_.native() + ": can't be written");
  size_ += count;
}

void NewFile::Publish() {
  stream_.close();
  std::error_code error;
  if (stream_) fs::rename(temporary_, target_, error);
  if (!stream_ || error) throw PublishError(target_.native() + ": can't be written");
}

}  // namespace velmora::publish
