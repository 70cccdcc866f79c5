// All cores at work on one thing.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>

namespace velmora::publish {

// How many threads a crew has: one a core, fewer only if the system has none left to give.
[[nodiscard]] unsigned CrewSize();

class Crew {
 public:
  // Calls `work` once in each thread of the crew, this one included, and returns when all calls
  // have. The first exception that leaves one is thrown on.
  void Run(const std::function<void()>& work);
  // Calls `work(i)` for each i below `count`, one after the other as threads become free. After an
  // exception no further call begins.
  void ForEach(std::size_t count, const std::function<void(std::size_t)>& work);

  // True as soon as a call has failed: what the others still do is for nothing. Any thread.
  [[nodiscard]] bool HasFailed() const { return failed_; }

 private:
  std::atomic<bool> failed_ = false;
};

}  // namespace velmora::publish
