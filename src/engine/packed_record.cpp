#include "engine/packed_record.h"

#include <algorithm>
#include <new>
#include <string>

namespace velmora {
namespace {

std::uint32_t LengthOf(const std::string& text) { return static_cast<std::uint32_t>(text.size()); }

}  // namespace

std::size_t PackedRecord::PackedSize(const FileRecord& record) {
  std::size_t size = sizeof(PackedRecord) + record.path.size() + record.transferHash.size() +
                     record.transferSize.size();
  if (record.contentHash != record.transferHash) size += record.contentHash.size();
  if (record.contentSize != record.transferSize) size += record.contentSize.size();
  return size;
}

PackedRecord::PackedRecord(const FileRecord& record)
    : pathLength_(LengthOf(record.path)),
      transferHashLength_(LengthOf(record.transferHash)),
      transferSizeLength_(LengthOf(record.transferSize)),
      contentHashLength_(LengthOf(record.contentHash)),
      contentSizeLength_(LengthOf(record.contentSize)),
      sharesHash_(record.contentHash == record.transferHash),
      sharesSize_(record.contentSize == record.transferSize),
      compressed_(record.compressed) {}

PackedRecord* PackedRecord::Pack(void* place, const FileRecord& record) {
  auto* packed = new (place) PackedRecord(record);
  auto* texts = reinterpret_cast<char*>(packed + 1);
  const auto append = [&texts](const std::string& text) {
    texts = std::copy(text.begin(), text.end(), texts);
  };
  append(record.path);
  append(record.transferHash);
  append(record.transferSize);
  if (!packed->sharesHash_) append(record.contentHash);
  if (!packed->sharesSize_) append(record.contentSize);
  return packed;
}

FileRecord PackedRecord::Unpacked() const {
  return {.path = std::string(path()),
          .transferHash = std::string(transferHash()),
          .transferSize = std::string(transferSize()),
          .contentHash = std::string(contentHash()),
          .contentSize = std::string(contentSize()),
          .compressed = compressed_};
}

bool PackedRecord::HasFieldsOf(const FileRecord& record) const {
  return compressed_ == record.compressed && transferHash() == record.transferHash &&
         transferSize() == record.transferSize && contentHash() == record.contentHash &&
         contentSize() == record.contentSize;
}

}  // namespace velmora
