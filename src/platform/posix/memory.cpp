#include "platform/memory.h"

#include <sys/mman.h>

#include <cstdlib>

namespace velmora::platform {

namespace {

// From here on the C library maps each block anew, page by page as they are touched. Asked for
// large pages, the system does that in a hundredth of the steps.
constexpr std::size_t kMapped = std::size_t{32} << 20;

void* Map(std::size_t size) {
  void* block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (block == MAP_FAILED) return nullptr;
  madvise(block, size, MADV_HUGEPAGE);  // a wish; without it the block is only slower
  return block;
}

}  // namespace

void* AllocateMemory(std::size_t size, bool zeroed) {
  if (size >= kMapped) return Map(size);
  return zeroed ? std::calloc(size, 1) : std::malloc(size);
}

void FreeMemory(void* block, std::size_t size) {
  if (block != nullptr && size >= kMapped) {
    munmap(block, size);
  } else {
    std::free(block);
  }
}

}  // namespace velmora::platform
