// What keeps a tree from being published. Everything is told at once, so that a publisher can put
// all of it right before the next try.
#pragma once

#include <set>
#include <string>
#include <utility>

namespace velmora::publish {

class Complaints {
 public:
  // `path` and the texts are ready for a terminal. `what` is wrong with it, and `wayOut` says what
  // the publisher can do. The same complaint may be added again.
  void Add(const std::string& path, const std::string& what, const std::string& wayOut);
  // The same for a text that has both.
  void Add(const std::string& path, const std::string& complaint);

  [[nodiscard]] bool HasAny() const { return !complaints_.empty(); }

  // Throws PublishError if there are any: what that means, the first 50 in the byte order of their
  // paths, each on its line, and the number of the others.
  void ThrowIfAny(const std::string& meaning = "nothing is published") const;

 private:
  std::set<std::pair<std::string, std::string>> complaints_;  // path, the rest of its line
};

}  // namespace velmora::publish
