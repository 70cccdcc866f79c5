// Blocks of memory for whole files. Any thread.
#pragma once

#include <cstddef>

namespace velmora::platform {

// `size` bytes, aligned for anything and not zero; null if they can't be had. With `zeroed` every
// byte is 0.
[[nodiscard]] void* AllocateMemory(std::size_t size, bool zeroed);

// Gives back a block and the size that it was asked for with; null is no block.
void FreeMemory(void* block, std::size_t size);

}  // namespace velmora::platform
