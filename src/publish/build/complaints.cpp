#include "publish/build/complaints.h"

#include <cstddef>

#include "publish/common/publish_error.h"

namespace velmora::publish {

void Complaints::Add(const std::string& path, const std::string& what, const std::string& wayOut) {
  Add(path, what + "; " + wayOut);
}

void Complaints::Add(const std::string& path, const std::string& complaint) {
  complaints_.emplace(path, ": " + complaint);
}

void Complaints::ThrowIfAny(const std::string& meaning) const {
  constexpr std::size_t kShown = 50;
  if (!HasAny()) return;
  std::string text = meaning + ", for " + std::to_string(complaints_.size()) +
                     (complaints_.size() == 1 ? " reason:" : " reasons:");
  std::size_t shown = 0;
  for (const auto& [path, rest] : complaints_) {
    if (shown == kShown) break;
    text.append("\n  ").append(path).append(rest);
    ++shown;
  }
  if (shown < complaints_.size()) {
    text += "\n  and " + std::to_string(complaints_.size() - shown) + " more";
  }
  throw PublishError(text);
}

}  // namespace velmora::publish
