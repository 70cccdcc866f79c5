// Bytes on their way to a descriptor that may be slow, stopped or gone. What can't be written
// because of an error is dropped.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velmora::platform::terminal {

class Output {
 public:
  // Puts `bytes` behind what is still to be written; writes nothing.
  void Add(std::string_view bytes) { pending_ += bytes; }
  [[nodiscard]] bool IsPending() const { return !pending_.empty(); }

  // Writes what the descriptor takes without waiting. Whether nothing is pending any more.
  bool WriteReady(int descriptor);

  // Writes until nothing is pending, waiting for the reader where that is necessary. False if
  // `interrupt` became readable while the reader kept it waiting; the rest stays pending then.
  bool WriteAll(int descriptor, int interrupt);

 private:
  bool Write(int descriptor, int interrupt, int timeout);
  void WriteSome(int descriptor);

  std::string pending_;
  std::size_t written_ = 0;  // of pending_
};

}  // namespace velmora::platform::terminal
