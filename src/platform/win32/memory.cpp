#include "platform/memory.h"

#include <cstdlib>

namespace velmora::platform {

void* AllocateMemory(std::size_t size, bool zeroed) {
  return zeroed ? std::calloc(size, 1) : std::malloc(size);
}

void FreeMemory(void* block, std::size_t) { std::free(block); }

}  // namespace velmora::platform
