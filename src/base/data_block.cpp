#include "base/data_block.h"

#include <algorithm>
#include <cstdlib>

namespace velmora {
namespace {

// A request for no bytes may return null, which means a failure here.
std::size_t AtLeastOne(std::size_t size) { return std::max<std::size_t>(size, 1); }

}  // namespace

bool DataBlock::Allocate(std::size_t size) {
  Release();
  return Hold(std::malloc(AtLeastOne(size)), size);
}

bool DataBlock::AllocateZeroed(std::size_t size) {
  Release();
  return Hold(std::calloc(AtLeastOne(size), 1), size);
}

}  // namespace velmora
