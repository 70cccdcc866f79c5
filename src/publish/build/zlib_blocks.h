// A zlib stream (RFC 1950) whose content is deflated (RFC 1951) in blocks, so that many cores can
// work on one file. A block is compressed with the 32 KiB before it as its dictionary, since most
// of what repeats is found there, and ends on a whole byte; concatenated, the blocks form one
// stream. Its bytes depend only on the content and on zlib, not on the threads.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace velmora::publish {

// Every block of a stream but the last has exactly this many bytes of content.
inline constexpr std::size_t kBlockSize = std::size_t{1} << 20;

// How far back the window of deflate reaches.
inline constexpr std::size_t kWindowSize = std::size_t{1} << 15;

struct DeflatedBlock {
  std::vector<std::uint8_t> bytes;
  std::size_t contentSize = 0;
  std::uint32_t contentChecksum = 0;  // Adler-32
};

// Deflates `content`. `dictionary` is what comes before it in the file, at most kWindowSize bytes.
// Any thread. Throws PublishError if zlib fails.
[[nodiscard]] DeflatedBlock Deflate(std::span<const std::uint8_t> dictionary,
                                    std::span<const std::uint8_t> content, bool isLast);

// The start of every stream, before the first block.
inline constexpr std::array<std::uint8_t, 2> kStreamHeader = {0x78, 0x9C};

// Computes the checksum that ends the stream.
class StreamChecksum {
 public:
  // To be called for each block, in their order.
  void Add(const DeflatedBlock& block);
  [[nodiscard]] std::array<std::uint8_t, 4> Trailer() const;

 private:
  std::uint32_t checksum_ = 1;
};

// Everything besides the content that the bytes of a stream depend on, as one line of text.
[[nodiscard]] std::string StreamMaker();

}  // namespace velmora::publish
