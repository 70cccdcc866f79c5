// The digest of bytes that arrive in chunks, as the text that a reference list holds.
#pragma once

#include <cstddef>
#include <string>

#include "platform/digest.h"

namespace velmora::publish {

using HashKind = platform::DigestKind;

// One thread at a time, and no longer than the thread lives that has made it. Throws PublishError
// when the system's digest service fails.
class FileDigest {
 public:
  explicit FileDigest(HashKind kind);
  ~FileDigest();
  FileDigest(const FileDigest&) = delete;
  FileDigest& operator=(const FileDigest&) = delete;

  // At most 4 GiB at once.
  void Add(const void* bytes, std::size_t count);
  // Upper-case hexadecimal; 40 or 32 characters. To be called once, after the last chunk.
  [[nodiscard]] std::string Text();

 private:
  platform::DigestHandle digest_ = 0;
};

}  // namespace velmora::publish
