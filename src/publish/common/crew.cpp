#include "publish/common/crew.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace velmora::publish {

unsigned CrewSize() { return std::max(1U, std::thread::hardware_concurrency()); }

void Crew::Run(const std::function<void()>& work) {
  std::mutex mutex;
  std::exception_ptr failure;
  const auto worker = [&] {
    try {
      work();
    } catch (...) {
      const std::lock_guard lock(mutex);
      if (!failure) failure = std::current_exception();
      failed_ = true;
    }
  };
  {
    std::vector<std::jthread> others(CrewSize() - 1);
    try {
      for (std::jthread& other : others) other = std::jthread(worker);
    } catch (const std::system_error&) {
      // The system has no thread left to give: the work takes longer.
    }
    worker();
  }
  if (failure) std::rethrow_exception(failure);
}

void Crew::ForEach(std::size_t count, const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next = 0;
  Run([&] {
    for (std::size_t i = next++; i < count && !failed_; i = next++) work(i);
  });
}

}  // namespace velmora::publish
