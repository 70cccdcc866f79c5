// A FileRecord in one block of memory, followed by its texts, for sets of many records. A typical
// record takes some 100 bytes instead of 400. A content hash or size that equals the transfer's is
// stored once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engine/file_record.h"

namespace velmora {

class PackedRecord {
 public:
  // Bytes that Pack needs.
  [[nodiscard]] static std::size_t PackedSize(const FileRecord& record);
  // Writes a copy of `record` to `place`, which must be aligned for a pointer.
  static PackedRecord* Pack(void* place, const FileRecord& record);

  PackedRecord(const PackedRecord&) = delete;
  PackedRecord& operator=(const PackedRecord&) = delete;

  [[nodiscard]] std::string_view path() const { return {Texts(), pathLength_}; }
  [[nodiscard]] std::string_view transferHash() const {
    return {path().data() + pathLength_, transferHashLength_};
  }
  [[nodiscard]] std::string_view transferSize() const {
    return {transferHash().data() + transferHashLength_, transferSizeLength_};
  }
  [[nodiscard]] std::string_view contentHash() const {
    if (sharesHash_) return transferHash();
    return {transferSize().data() + transferSizeLength_, contentHashLength_};
  }
  [[nodiscard]] std::string_view contentSize() const {
    if (sharesSize_) return transferSize();
    const char* const transferEnd = transferSize().data() + transferSizeLength_;
    return {transferEnd + (sharesHash_ ? 0 : contentHashLength_), contentSizeLength_};
  }
  [[nodiscard]] bool compressed() const { return compressed_; }

  [[nodiscard]] FileRecord Unpacked() const;
  // Whether all fields except the path equal the record's.
  [[nodiscard]] bool HasFieldsOf(const FileRecord& record) const;

 private:
  explicit PackedRecord(const FileRecord& record);
  [[nodiscard]] const char* Texts() const { return reinterpret_cast<const char*>(this + 1); }

  std::uint32_t pathLength_;
  std::uint32_t transferHashLength_;
  std::uint32_t transferSizeLength_;
  std::uint32_t contentHashLength_;
  std::uint32_t contentSizeLength_;
  bool sharesHash_;
  bool sharesSize_;
  bool compressed_;
};

}  // namespace velmora
