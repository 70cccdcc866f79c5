// Reading a file that must not have changed since it was listed.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "publish/common/file_digest.h"

namespace velmora::publish {

// Reads a file from start to end. Throws PublishError if the file can't be read, or doesn't have
// exactly `size` bytes, which shows at the last byte at the latest. One thread at a time.
class SizedReader {
 public:
  SizedReader(std::filesystem::path path, std::uint64_t size);

  // Reads the next `count` bytes, or as many as are left. Returns how many.
  std::size_t Read(std::uint8_t* buffer, std::size_t count);
  // The number of bytes that are still to be read.
  [[nodiscard]] std::uint64_t left() const { return left_; }

 private:
  std::filesystem::path path_;
  std::uint64_t left_;
  std::ifstream stream_;
};

// The digest of the whole file. `checkStop` is called before each chunk and may throw to stop.
template <typename CheckStop>
[[nodiscard]] std::string DigestOfFile(const std::filesystem::path& path, std::uint64_t size,
                                       HashKind kind, CheckStop checkStop) {
  static constexpr std::uint64_t kChunk = std::uint64_t{1} << 18;
  SizedReader reader(path, size);
  FileDigest digest(kind);
  std::vector<std::uint8_t> chunk(static_cast<std::size_t>(std::min(kChunk, size)));
  do {
    checkStop();
    const std::size_t count = reader.Read(chunk.data(), chunk.size());
    digest.Add(chunk.data(), count);
  } while (reader.left() > 0);
  return digest.Text();
}

}  // namespace velmora::publish
