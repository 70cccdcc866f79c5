// Buffered output to a descriptor whose reader may be slow, stopped or gone. After an error the
// bytes still to be written are dropped.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velmora::platform::terminal {

class Output {
 public:
  // Appends to the buffer without writing.
  void Add(std::string_view bytes) { pending_ += bytes; }
  [[nodiscard]] bool IsPending() const { return !pending_.empty(); }

  // Writes as much as possible without waiting. True if nothing is pending any more.
  bool WriteReady(int descriptor);

  // Writes everything, waiting for the reader. False if `interrupt` became readable during a wait:
  // the rest is still pending then.
  bool WriteAll(int descriptor, int interrupt);

 private:
  bool Write(int descriptor, int interrupt, int timeout);
  void WriteSome(int descriptor);

  std::string pending_;
  std::size_t written_ = 0;  // of pending_
};

}  // namespace velmora::platform::terminal
