#include "publish/build/zlib_blocks.h"

#include <libdeflate.h>
#include <zlib.h>

#include <map>
#include <memory>

#include "publish/common/publish_error.h"

namespace velmora::publish {
namespace {

constexpr int kRawDeflate = -15;  // the largest window, without header and trailer

void RequireMemory(bool succeeded) {
  if (!succeeded) throw PublishError("the compression fails: not enough memory?");
}

struct Free {
  void operator()(libdeflate_compressor* compressor) const {
    libdeflate_free_compressor(compressor);
  }
};

// A new one for each small file would take a noticeable part of the time.
libdeflate_compressor* CompressorOf(int effort) {
  static thread_local std::map<int, std::unique_ptr<libdeflate_compressor, Free>> compressors;
  auto& compressor = compressors[effort];
  if (!compressor) compressor.reset(libdeflate_alloc_compressor(effort));
  RequireMemory(compressor != nullptr);
  return compressor.get();
}

std::vector<std::uint8_t> Compressed(std::span<const std::uint8_t> content, int effort) {
  libdeflate_compressor* const compressor = CompressorOf(effort);
  std::vector<std::uint8_t> bytes(libdeflate_deflate_compress_bound(compressor, content.size()));
  bytes.resize(libdeflate_deflate_compress(compressor, content.data(), content.size(), bytes.data(),
                                           bytes.size()));
  RequireMemory(!bytes.empty());
  return bytes;
}

// Positions in a deflate stream, in bits from its start.
struct LastBlock {
  std::size_t start = 0;
  std::size_t end = 0;
};

struct Inflater {
  Inflater() { RequireMemory(inflateInit2(&stream, kRawDeflate) == Z_OK); }
  ~Inflater() { inflateEnd(&stream); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  z_stream stream{};
};

// Only expanding the stream tells where its last block is, which is far faster than compressing it.
LastBlock FindLastBlock(const std::vector<std::uint8_t>& bytes) {
  constexpr int kUnusedBits = 7;
  constexpr int kInLastBlock = 64;
  constexpr int kAtBlockEnd = 128;
  constexpr std::size_t kBuffer = std::size_t{1} << 16;
  const auto ignored = std::make_unique_for_overwrite<std::uint8_t[]>(kBuffer);
  Inflater inflater;
  z_stream& stream = inflater.stream;
  stream.next_in = const_cast<Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  LastBlock last;
  int result = Z_OK;
  while (result != Z_STREAM_END) {
    stream.next_out = ignored.get();
    stream.avail_out = static_cast<uInt>(kBuffer);
    result = inflate(&stream, Z_BLOCK);
    RequireMemory(result == Z_OK || result == Z_STREAM_END);
    if ((stream.data_type & kAtBlockEnd) == 0) continue;
    const bool isEnd = (stream.data_type & kInLastBlock) != 0;
    (isEnd ? last.end : last.start) =
        std::size_t{stream.total_in} * 8 - static_cast<std::size_t>(stream.data_type & kUnusedBits);
  }
  return last;
}

// Makes room for more blocks after a stream's end: its last block becomes one like the others, and
// an empty stored block fills the last byte up.
void OpenEnd(std::vector<std::uint8_t>& bytes) {
  constexpr std::size_t kBlockHeader = 3;  // bits
  const LastBlock last = FindLastBlock(bytes);
  bytes[last.start / 8] &= static_cast<std::uint8_t>(~(1U << (last.start % 8)));
  bytes.resize((last.end + kBlockHeader + 7) / 8);
  bytes.insert(bytes.end(), {0x00, 0x00, 0xFF, 0xFF});  // the length 0 and its complement
}

}  // namespace

DeflatedBlock Deflate(std::span<const std::uint8_t> content, int effort, bool isLast) {
  DeflatedBlock block;
  block.bytes = Compressed(content, effort);
  if (!isLast) OpenEnd(block.bytes);
  block.contentSize = content.size();
  block.contentChecksum = libdeflate_adler32(1, content.data(), content.size());
  return block;
}

std::size_t QuickDeflatedSize(std::span<const std::uint8_t> content) {
  return Compressed(content, kLeastEffort).size();
}

void StreamChecksum::Add(const DeflatedBlock& block) {
  checksum_ = static_cast<std::uint32_t>(
      adler32_combine(checksum_, block.contentChecksum, static_cast<z_off_t>(block.contentSize)));
}

std::array<std::uint8_t, 4> StreamChecksum::Trailer() const {
  const auto byte = [this](int shift) { return static_cast<std::uint8_t>(checksum_ >> shift); };
  return {byte(24), byte(16), byte(8), byte(0)};
}

std::string StreamMaker() { return "libdeflate " LIBDEFLATE_VERSION_STRING; }

}  // namespace velmora::publish
