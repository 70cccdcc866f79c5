// A zlib stream (RFC 1950) whose content is deflated (RFC 1951) in blocks, so that many cores can
// work on one file. Each block is compressed by itself and ends on a whole byte; concatenated, the
// blocks form one stream. Its bytes depend only on the content, the effort and libdeflate, not on
// the threads.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace velmora::publish {

// How hard libdeflate tries: from 1, fast, to 12, small.
inline constexpr int kLeastEffort = 1;
inline constexpr int kMostEffort = 12;

struct DeflatedBlock {
  std::vector<std::uint8_t> bytes;
  std::size_t contentSize = 0;
  std::uint32_t contentChecksum = 0;  // Adler-32
};

// Deflates `content`, of any size that fits into memory about twice. Any thread. Throws
// PublishError if that fails.
[[nodiscard]] DeflatedBlock Deflate(std::span<const std::uint8_t> content, int effort, bool isLast);

// The number of bytes that the content would have with the least effort.
[[nodiscard]] std::size_t QuickDeflatedSize(std::span<const std::uint8_t> content);

// The start of every stream, before the first block.
inline constexpr std::array<std::uint8_t, 2> kStreamHeader = {0x78, 0xDA};

// Computes the checksum that ends the stream.
class StreamChecksum {
 public:
  // To be called for each block, in their order.
  void Add(const DeflatedBlock& block);
  [[nodiscard]] std::array<std::uint8_t, 4> Trailer() const;

 private:
  std::uint32_t checksum_ = 1;
};

// Everything besides content and effort that the bytes of a stream depend on, as one line of text.
[[nodiscard]] std::string StreamMaker();

}  // namespace velmora::publish
