#include "platform/memory.h"

#include <malloc.h>
#include <sys/mman.h>

#include <cstdlib>

namespace velmora::platform {

namespace {

// From here on each block is mapped anew, page by page as they are touched. Asked for large pages,
// the system does that in a hundredth of the steps.
constexpr std::size_t kMapped = std::size_t{4} << 20;

// Smaller blocks come one after the other, and the C library would give each of them back at once,
// only to get it again page by page.
const bool kKept =
    mallopt(M_MMAP_THRESHOLD, kMapped) == 1 && mallopt(M_TRIM_THRESHOLD, 2 * kMapped) == 1;

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
