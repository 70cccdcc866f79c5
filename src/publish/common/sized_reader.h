// Reading a file that has to be what it was when it was listed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "publish/common/file_digest.h"

namespace velmora::publish {

// Gives the bytes of a file from front to back. A file that doesn't have exactly `size` bytes is
// refused, at the latest with its last byte: its record would be a lie. Throws PublishError. One
// thread at a time.
class SizedReader {
 public:
  SizedReader(std::filesystem::path path, std::uint64_t size);

  // Fills `buffer` with the next `count` bytes, or with as many as are left; says how many.
  std::size_t Read(std::uint8_t* buffer, std::size_t count);
  // Bytes that are still to be read.
  [[nodiscard]] std::uint64_t left() const { return left_; }

 private:
  std::filesystem::path path_;
  std::uint64_t left_;
  std::ifstream stream_;
};

// The digest of the whole file. `goOn` is called between two pieces, and ends the work by throwing.
template <typename GoOn>
[[nodiscard]] std::string DigestOfFile(const std::filesystem::path& path, std::uint64_t size,
                                       HashKind kind, GoOn goOn) {
  static constexpr std::size_t kPiece = std::size_t{1} << 18;
  SizedReader reader(path, size);
  FileDigest digest(kind);
  std::vector<std::uint8_t> piece(kPiece);
  do {
    goOn();
    const std::size_t count = reader.Read(piece.data(), piece.size());
    digest.Add(piece.data(), count);
  } while (reader.left() > 0);
  return digest.Text();
}

}  // namespace velmora::publish
