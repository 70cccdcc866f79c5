// The digest of bytes that come piece by piece, as the text that a reference list holds.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace velmora::publish {

enum class HashKind { kSha1, kMd5 };  // RFC 3174, RFC 1321

// Throws PublishError when the system's digest service fails.
class FileDigest {
 public:
  explicit FileDigest(HashKind kind);
  ~FileDigest();
  FileDigest(FileDigest&&) noexcept;

  void Add(const void* bytes, std::size_t count);
  // Upper-case hexadecimal; 40 or 32 characters. Once, behind the last piece.
  [[nodiscard]] std::string Text();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

}  // namespace velmora::publish
