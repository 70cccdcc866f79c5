// What stops the publisher's tool: a text for its user, which names the file it is about.
#pragma once

#include <stdexcept>

namespace velmora::publish {

class PublishError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace velmora::publish
