// What a server can do wrong with one reply. A number decides all of it, so that a case can be
// repeated.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "support/loopback_server.h"

namespace velmora::test {

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed * 2654435761U + 1) {}

  std::size_t Below(std::size_t bound) { return engine_() % bound; }
  bool Chance(int percent) { return Below(100) < static_cast<std::size_t>(percent); }
  std::string Bytes(std::size_t count) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) byte = static_cast<char>(engine_());
    return bytes;
  }
  // `bytes` with one bit changed.
  std::string Damaged(std::string bytes) {
    bytes[Below(bytes.size())] ^= static_cast<char>(1U << Below(8));
    return bytes;
  }
  template <typename Item>
  Item Pick(const std::vector<Item>& items) {
    return items[Below(items.size())];
  }

 private:
  std::mt19937 engine_;
};

// The kinds of replies, by name.
[[nodiscard]] std::vector<std::string> HostileKinds();

// A reply of that kind to a request for `path`, where an honest server would send `body`.
[[nodiscard]] Reply HostileReply(const std::string& kind, Random& random, const std::string& path,
                                 const std::string& body);

}  // namespace velmora::test
