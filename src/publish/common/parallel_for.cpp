#include "publish/common/parallel_for.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace velmora::publish {

std::size_t CoreCount() { return std::max(1U, std::thread::hardware_concurrency()); }

void ParallelFor(std::size_t count, const std::function<void(std::size_t)>& work,
                 std::size_t threads) {
  if (count == 0) return;
  std::atomic<std::size_t> next = 0;
  std::mutex mutex;
  std::exception_ptr failure;
  const auto run = [&] {
    try {
      for (std::size_t i = next++; i < count; i = next++) work(i);
    } catch (...) {
      next = count;
      const std::lock_guard lock(mutex);
      if (!failure) failure = std::current_exception();
    }
  };
  {
    std::vector<std::jthread> others(std::min(count, threads) - 1);
    try {
      for (std::jthread& other : others) other = std::jthread(run);
    } catch (const std::system_error&) {
    }
    run();
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace velmora::publish
