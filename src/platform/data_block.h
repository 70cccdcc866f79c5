// A block of bytes on the heap whose allocation may fail without an exception: the sizes come from
// servers and from disks, so that "too large" is an ordinary answer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "platform/memory.h"

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

  // Replaces what the block held by `size` bytes. False, and the block is then empty, if they can't
  // be had. A size of 0 always works.
  [[nodiscard]] bool Allocate(std::size_t size) { return Take(size, false); }

  // The same with every byte zero.
  [[nodiscard]] bool AllocateZeroed(std::size_t size) { return Take(size, true); }

  void Release() {
    platform::FreeMemory(bytes_, Rounded(size_));
    bytes_ = nullptr;
    size_ = 0;
  }

  [[nodiscard]] std::uint8_t* data() { return bytes_; }
  [[nodiscard]] const std::uint8_t* data() const { return bytes_; }
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  static std::size_t Rounded(std::size_t size) { return size == 0 ? 1 : size; }

  bool Take(std::size_t size, bool zeroed) {
    Release();
    bytes_ = static_cast<std::uint8_t*>(platform::AllocateMemory(Rounded(size), zeroed));
    if (bytes_ != nullptr) size_ = size;
    return bytes_ != nullptr;
  }

  std::uint8_t* bytes_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace velmora
