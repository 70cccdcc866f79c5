// A block of bytes on the heap whose allocation may fail without an exception: the sizes come from
// servers and from disks, so that "too large" is an ordinary answer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

namespace velmora {

class DataBlock {
 public:
  DataBlock() = default;
  DataBlock(DataBlock&& other) noexcept
      : bytes_(std::move(other.bytes_)), size_(std::exchange(other.size_, 0)) {}
  DataBlock& operator=(DataBlock&& other) noexcept {
    bytes_ = std::move(other.bytes_);
    size_ = std::exchange(other.size_, 0);
    return *this;
  }

  // Replaces what the block held by `size` bytes. False, and the block is then empty, if they can't
  // be had. A size of 0 always works.
  [[nodiscard]] bool Allocate(std::size_t size) { return Take(std::malloc(Rounded(size)), size); }

  // The same with every byte zero.
  [[nodiscard]] bool AllocateZeroed(std::size_t size) {
    return Take(std::calloc(Rounded(size), 1), size);
  }

  void Release() {
    bytes_.reset();
    size_ = 0;
  }

  [[nodiscard]] std::uint8_t* data() { return bytes_.get(); }
  [[nodiscard]] const std::uint8_t* data() const { return bytes_.get(); }
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  struct Free {
    void operator()(std::uint8_t* bytes) const { std::free(bytes); }
  };

  static std::size_t Rounded(std::size_t size) { return size == 0 ? 1 : size; }

  bool Take(void* bytes, std::size_t size) {
    bytes_.reset(static_cast<std::uint8_t*>(bytes));
    size_ = bytes == nullptr ? 0 : size;
    return bytes != nullptr;
  }

  std::unique_ptr<std::uint8_t, Free> bytes_;
  std::size_t size_ = 0;
};

}  // namespace velmora
