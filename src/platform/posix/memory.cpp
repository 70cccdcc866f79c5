#include "platform/memory.h"

#include <malloc.h>
#include <sys/mman.h>

#include <cstdlib>
#include <utility>

namespace velmora::platform {

namespace {

// From here on each block is mapped on its own. Asked for large pages, the system does that in a
// hundredth of the steps.
constexpr std::size_t kMapped = std::size_t{4} << 20;

// Smaller blocks come one after the other, and the C library would give each of them back at once,
// only to get it again page by page.
[[maybe_unused]] const bool kKeepsSmallBlocks =
    mallopt(M_MMAP_THRESHOLD, kMapped) == 1 && mallopt(M_TRIM_THRESHOLD, 2 * kMapped) == 1;

// A larger block is given back at once: it may be a long time until the next one of its kind.
constexpr std::size_t kMaxKept = std::size_t{64} << 20;

// The block that a thread gave back last. If the next one is mapped too, it takes the pages over,
// which is cheaper than new ones; otherwise they go back. What has to be zero is better new: it may
// be large and never written, where a server announces what it doesn't send.
class LastBlock {
 public:
  LastBlock() = default;
  LastBlock(const LastBlock&) = delete;
  LastBlock& operator=(const LastBlock&) = delete;
  ~LastBlock() { Put(nullptr, 0); }

  void Put(void* block, std::size_t size) {
    if (block_ != nullptr) munmap(block_, size_);
    if (size > kMaxKept) munmap(std::exchange(block, nullptr), size);
    block_ = block;
    size_ = size;
  }

  // Null if there is none or the system refuses; it is gone then.
  void* Take(std::size_t size) {
    if (block_ == nullptr) return nullptr;
    void* const block = mremap(block_, size_, size, MREMAP_MAYMOVE);
    if (block == MAP_FAILED) {
      Put(nullptr, 0);
      return nullptr;
    }
    block_ = nullptr;
    return block;
  }

 private:
  void* block_ = nullptr;
  std::size_t size_ = 0;
};

thread_local LastBlock lastBlock;

void* Map(std::size_t size) {
  void* block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (block == MAP_FAILED) return nullptr;
  madvise(block, size, MADV_HUGEPAGE);  // a wish; without it the block is only slower
  return block;
}

}  // namespace

void* AllocateMemory(std::size_t size, bool zeroed) {
  if (zeroed || size < kMapped) lastBlock.Put(nullptr, 0);
  if (size < kMapped) return zeroed ? std::calloc(size, 1) : std::malloc(size);
  void* const block = lastBlock.Take(size);
  return block != nullptr ? block : Map(size);
}

void FreeMemory(void* block, std::size_t size) {
  if (block != nullptr && size >= kMapped) {
    lastBlock.Put(block, size);
  } else {
    std::free(block);
  }
}

}  // namespace velmora::platform
