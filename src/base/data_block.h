// A block of bytes on the heap. Its allocation may fail without an exception: the sizes come from
// servers and disks, so that "too large" is an ordinary answer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace velmora {

class DataBlock {
 public:
  DataBlock() = default;
  ~DataBlock() { Release(); }
  DataBlock(DataBlock&& other) noexcept
      : bytes_(std::exchange(other.bytes_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  DataBlock& operator=(DataBlock&& other) noexcept {
    std::swap(bytes_, other.bytes_);
    std::swap(size_, other.size_);
    return *this;
  }

  // Frees what the block held, then allocates `size` bytes of any value. False, and the block is
  // empty, if there isn't enough memory. A size of 0 always works.
  [[nodiscard]] bool Allocate(std::size_t size);

  // The same with every byte zero.
  [[nodiscard]] bool AllocateZeroed(std::size_t size);

  void Release() {
    std::free(bytes_);
    bytes_ = nullptr;
    size_ = 0;
  }

  // Null only as long as nothing is allocated.
  [[nodiscard]] std::uint8_t* data() { return bytes_; }
  [[nodiscard]] const std::uint8_t* data() const { return bytes_; }
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  // Takes over what malloc or calloc returned for the size.
  bool Hold(void* bytes, std::size_t size) {
    bytes_ = static_cast<std::uint8_t*>(bytes);
    if (bytes != nullptr) size_ = size;
    return bytes != nullptr;
  }

  std::uint8_t* bytes_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace velmora
