// Doing many things at once.
#pragma once

#include <cstddef>
#include <functional>

namespace velmora::publish {

// The number of processor cores, at least 1.
[[nodiscard]] std::size_t CoreCount();

// Calls `work(i)` for each i below `count`, in ascending order, on up to `threads` threads, the
// calling one included, and returns when all calls have. If the system can't start that many
// threads, fewer do the work. After an exception no further call begins, and the first one is
// rethrown.
void ParallelFor(std::size_t count, const std::function<void(std::size_t)>& work,
                 std::size_t threads = CoreCount());

}  // namespace velmora::publish
