// Memory for many small objects that share a lifetime: allocated from large blocks and freed all at
// once. One thread at a time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace velmora {

class Arena {
 public:
  // `size` bytes, aligned for any pointer, valid until Clear. Throws std::bad_alloc.
  void* Take(std::size_t size) {
    size = (size + kAlignment - 1) / kAlignment * kAlignment;
    if (size > left_) AddBlock(size);
    left_ -= size;
    return std::exchange(next_, next_ + size);
  }

  void Clear() {
    blocks_.clear();
    next_ = nullptr;
    left_ = 0;
    blockSize_ = kFirstBlock;
  }

 private:
  static constexpr std::size_t kAlignment = alignof(void*);
  static constexpr std::size_t kFirstBlock = std::size_t{1} << 12;
  static constexpr std::size_t kLargestBlock = std::size_t{1} << 20;

  // Block sizes double, so that at most about half of the memory is unused.
  void AddBlock(std::size_t size) {
    const std::size_t blockSize = std::max(size, blockSize_);
    blocks_.push_back(std::unique_ptr<std::byte[]>(new std::byte[blockSize]));
    next_ = blocks_.back().get();
    left_ = blockSize;
    blockSize_ = std::min(blockSize_ * 2, kLargestBlock);
  }

  std::vector<std::unique_ptr<std::byte[]>> blocks_;
  std::byte* next_ = nullptr;
  std::size_t left_ = 0;
  std::size_t blockSize_ = kFirstBlock;
};

}  // namespace velmora
