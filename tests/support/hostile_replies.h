// What a server can do wrong with one answer. A number decides all of it, so that a case comes
// again.
#pragma once

#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/loopback_server.h"

namespace velmora::test {

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed * 2654435761U + 1) {}

  std::size_t Below(std::size_t bound) { return engine_() % bound; }
  bool Chance(int percent) { return Below(100) < static_cast<std::size_t>(percent); }
  // One of the choices that stand between bars; "@" is a zero byte in them.
  std::string PickOf(std::string_view choices);
  std::string Bytes(std::size_t count) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) byte = static_cast<char>(engine_());
    return bytes;
  }
  template <typename Item>
  Item Pick(const std::vector<Item>& items) {
    return items[Below(items.size())];
  }

 private:
  std::mt19937 engine_;
};

// `text`, `count` times.
[[nodiscard]] std::string Times(std::size_t count, const std::string& text);

// What was asked for, and what an honest server would give.
struct Honest {
  std::string path;
  std::string body;
};

struct HostileKind {
  std::string name;
  Reply (*reply)(Random&, const Honest&);
};

// All the ways: "status line", "status code", "interim", "redirect", "headers", "length", "chunks",
// "early end", "body", "endless", "kept" and "stall".
[[nodiscard]] const std::vector<HostileKind>& HostileKinds();

}  // namespace velmora::test
