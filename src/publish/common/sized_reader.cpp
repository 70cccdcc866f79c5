#include "publish/common/sized_reader.h"

#include <algorithm>
#include <utility>

#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {

SizedReader::SizedReader(std::filesystem::path path, std::uint64_t size)
    : path_(std::move(path)), left_(size) {
  platform::ClearStreamError();
  stream_.open(path_, std::ios::binary);
  if (!stream_) {
    throw PublishError(ShownPath(path_) +
                       ": can't be read: " + platform::ErrorText(platform::StreamError()));
  }
}

std::size_t SizedReader::Read(std::uint8_t* buffer, std::size_t count) {
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, left_));
  stream_.read(reinterpret_cast<char*>(buffer), static_cast<std::streamsize>(wanted));
  left_ -= wanted;
  const bool isWhole = stream_.good() && static_cast<std::size_t>(stream_.gcount()) == wanted;
  const bool endsThere = left_ > 0 || stream_.peek() == std::ifstream::traits_type::eof();
  if (!isWhole || !endsThere || stream_.bad()) {
    throw PublishError(ShownPath(path_) + ": can't be read, or changed while it was read");
  }
  return wanted;
}

}  // namespace velmora::publish
