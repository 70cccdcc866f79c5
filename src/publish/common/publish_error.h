// The error that stops the publisher's tool: a text for its user that names the file it is about.
#pragma once

#include <stdexcept>

namespace velmora::publish {

class PublishError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace velmora::publish
