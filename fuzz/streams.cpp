// A target for the streams that `velmora-publish build` makes. Input: a line with the effort and
// the sizes of the blocks, then the content, which the last block takes the rest of.
#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <sstream>

#include "publish/build/zlib_blocks.h"
#include "targets.h"

namespace velmora::fuzz {

using Bytes = std::vector<std::uint8_t>;

static Bytes Expanded(const Bytes& stream, std::size_t size) {
  Bytes content(size + 1);
  uLongf length = content.size();
  const int result = uncompress(content.data(), &length, stream.data(), stream.size());
  Require(result == Z_OK, "a patcher expands it", std::to_string(result));
  content.resize(length);
  return content;
}

static Bytes ExpandedFast(const Bytes& stream, std::size_t size) {
  static libdeflate_decompressor* const decompressor = libdeflate_alloc_decompressor();
  Bytes content(size + 1);
  std::size_t length = 0;
  const auto result = libdeflate_zlib_decompress(decompressor, stream.data(), stream.size(),
                                                 content.data(), content.size(), &length);
  Require(result == LIBDEFLATE_SUCCESS, "so does any other reader", std::to_string(result));
  content.resize(length);
  return content;
}

void CheckZlibBlocks(std::string_view input) {
  std::istringstream words{std::string(TakeUntil("\n", input))};
  int effort = 0;
  words >> effort;
  effort = std::clamp(effort, publish::kLeastEffort, publish::kMostEffort);
  const Bytes content(input.begin(), input.end());
  Bytes stream(publish::kStreamHeader.begin(), publish::kStreamHeader.end());
  publish::StreamChecksum checksum;
  for (std::span<const std::uint8_t> rest = content; !rest.empty();) {
    std::size_t size = 0;
    if (!(words >> size)) size = rest.size();
    const auto block = rest.first(std::clamp<std::size_t>(size, 1, rest.size()));
    rest = rest.subspan(block.size());
    const auto deflated = publish::Deflate(block, effort, rest.empty());
    stream.insert(stream.end(), deflated.bytes.begin(), deflated.bytes.end());
    checksum.Add(deflated);
  }
  if (content.empty()) return;  // never compressed
  const auto trailer = checksum.Trailer();
  stream.insert(stream.end(), trailer.begin(), trailer.end());
  Require(Expanded(stream, content.size()) == content, "it is the content", input);
  Require(ExpandedFast(stream, content.size()) == content, "to every reader", input);
}

}  // namespace velmora::fuzz
