// A zlib stream (RFC 1950) made of blocks that are deflated (RFC 1951) each by itself, so that many
// cores can work on one file. A block knows the 32 KiB in front of it, where most of what repeats
// is found, and ends at a whole byte; put one behind the other, the blocks are one stream. Its
// bytes depend on the content and on zlib alone, never on who deflated which block when.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace velmora::publish {

// Every block of a stream but the last has exactly this many bytes of content.
inline constexpr std::size_t kBlockSize = std::size_t{1} << 20;

struct StreamBlock {
  // The content, and in front of it `known` bytes of what stands before it in the file.
  std::vector<std::uint8_t> bytes;
  std::size_t known = 0;
  bool isLast = false;
  // What Deflate makes of them.
  std::vector<std::uint8_t> packed;
  std::uint32_t checksum = 0;  // Adler-32 of the content

  [[nodiscard]] std::size_t contentSize() const { return bytes.size() - known; }
};

// Deflates blocks of any stream, one at a time. Throws PublishError when zlib fails.
class BlockDeflater {
 public:
  BlockDeflater();
  ~BlockDeflater();
  BlockDeflater(const BlockDeflater&) = delete;
  BlockDeflater& operator=(const BlockDeflater&) = delete;

  void Deflate(StreamBlock& block);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Cuts a file's content, as it comes, into the blocks of its stream.
class BlockCutter {
 public:
  // A block of `count` bytes, to be filled in behind `known`.
  [[nodiscard]] StreamBlock Begin(std::size_t count);
  // Has to be called with the filled block before the next one begins.
  void End(const StreamBlock& block);

 private:
  std::vector<std::uint8_t> before_;
};

// What stands in front of the first block of every stream.
inline constexpr std::array<std::uint8_t, 2> kStreamHead = {0x78, 0x9C};

// What stands behind the last block.
class StreamChecksum {
 public:
  // The blocks in their order.
  void Add(const StreamBlock& block);
  [[nodiscard]] std::array<std::uint8_t, 4> Tail() const;

 private:
  std::uint32_t checksum_ = 1;
};

// All that the bytes of a stream depend on besides its content, as one line of text.
[[nodiscard]] std::string StreamMaker();

}  // namespace velmora::publish
