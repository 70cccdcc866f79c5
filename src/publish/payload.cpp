#include "publish/payload.h"

#include <zlib.h>

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "engine/reference_list.h"
#include "publish/publish_error.h"
#include "publish/staging.h"

namespace velmora::publish {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 18;

// Of game data the strongest level makes 0.3 % less, in four times the time.
constexpr int kLevel = 6;

// A compressed file is smaller by this part of its size at least.
constexpr std::uint64_t kGainDivisor = 20;

using TakePiece = std::function<void(const std::uint8_t* bytes, std::size_t count)>;

void StopIfAsked(const PayloadOptions& options) {
  if (options.stop != nullptr && *options.stop)
    throw PublishError("stopped; nothing was published");
}

// Gives the file piece by piece. A file that changes its size meanwhile is refused: its record
// would be a lie.
void ReadPieces(const SourceFile& file, const PayloadOptions& options, const TakePiece& take) {
  std::ifstream stream(file.path, std::ios::binary);
  std::vector<std::uint8_t> piece(kPiece);
  std::uint64_t total = 0;
  while (stream) {
    StopIfAsked(options);
    stream.read(reinterpret_cast<char*>(piece.data()), static_cast<std::streamsize>(kPiece));
    const auto count = static_cast<std::size_t>(stream.gcount());
    if (count > 0) take(piece.data(), count);
    total += count;
  }
  if (!stream.eof() || total != file.size) {
    throw PublishError(file.path.native() + ": can't be read, or changed while it was read");
  }
}

// A zlib stream (RFC 1950) that goes out piece by piece.
class Compressor {
 public:
  explicit Compressor(TakePiece take) : take_(std::move(take)), piece_(kPiece) {
    if (deflateInit(&stream_, kLevel) != Z_OK) {
      throw PublishError("the compression can't be started");
    }
  }
  ~Compressor() { deflateEnd(&stream_); }
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;

  void Add(const std::uint8_t* bytes, std::size_t count) {
    stream_.next_in = const_cast<Bytef*>(bytes);
    stream_.avail_in = static_cast<uInt>(count);
    Run(Z_NO_FLUSH);
  }
  void Finish() { Run(Z_FINISH); }

 private:
  void Run(int flush) {
    do {
      stream_.next_out = piece_.data();
      stream_.avail_out = static_cast<uInt>(piece_.size());
      deflate(&stream_, flush);
      take_(piece_.data(), piece_.size() - stream_.avail_out);
    } while (stream_.avail_out == 0);
  }

  TakePiece take_;
  std::vector<std::uint8_t> piece_;
  z_stream stream_{};
};

// True if compression pays; then the stream is written and the record complete.
bool TryCompressed(const SourceFile& file, const std::filesystem::path& target,
                   const PayloadOptions& options, FileRecord& record) {
  NewFile stream(target);
  FileDigest content(options.hash);
  FileDigest transfer(options.hash);
  Compressor compressor([&](const std::uint8_t* bytes, std::size_t count) {
    transfer.Add(bytes, count);
    stream.Write(bytes, count);
  });
  ReadPieces(file, options, [&](const std::uint8_t* bytes, std::size_t count) {
    content.Add(bytes, count);
    compressor.Add(bytes, count);
  });
  compressor.Finish();
  const bool pays = stream.size() + file.size / kGainDivisor < file.size;
  if (!pays) return false;
  stream.Keep();
  record.contentHash = content.Text();
  record.transferHash = transfer.Text();
  record.transferSize = std::to_string(stream.size());
  record.compressed = true;
  return true;
}

void WritePlain(const SourceFile& file, const std::filesystem::path& target,
                const PayloadOptions& options, FileRecord& record) {
  NewFile copy(target);
  FileDigest content(options.hash);
  ReadPieces(file, options, [&](const std::uint8_t* bytes, std::size_t count) {
    content.Add(bytes, count);
    copy.Write(bytes, count);
  });
  copy.Keep();
  record.contentHash = record.transferHash = content.Text();
  record.transferSize = record.contentSize;
}

}  // namespace

FileRecord WritePayload(const SourceFile& file, const std::filesystem::path& target,
                        const PayloadOptions& options) {
  FileRecord record;
  record.path = file.listPath;
  record.contentSize = std::to_string(file.size);
  const bool tries = options.compress && CanBeAskedFor(file.listPath, kCompressedMark);
  const bool written = tries && TryCompressed(file, target, options, record);
  if (!written) WritePlain(file, target, options, record);
  return record;
}

}  // namespace velmora::publish
