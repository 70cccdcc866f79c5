#include "publish/common/file_digest.h"

#include <openssl/evp.h>

#include "base/ascii.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {
namespace {

void Require(bool succeeded) {
  if (!succeeded) throw PublishError("the system's digest service fails");
}

}  // namespace

struct FileDigest::Context {
  Context() = default;
  ~Context() { EVP_MD_CTX_free(evp); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  EVP_MD_CTX* evp = EVP_MD_CTX_new();
};

FileDigest::FileDigest(HashKind kind) : context_(std::make_unique<Context>()) {
  const EVP_MD* digest = kind == HashKind::kMd5 ? EVP_md5() : EVP_sha1();
  Require(context_->evp != nullptr && EVP_DigestInit_ex(context_->evp, digest, nullptr) == 1);
}

FileDigest::~FileDigest() = default;
FileDigest::FileDigest(FileDigest&&) noexcept = default;

void FileDigest::Add(const void* bytes, std::size_t count) {
  Require(EVP_DigestUpdate(context_->evp, bytes, count) == 1);
}

std::string FileDigest::Text() {
  unsigned char bytes[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  Require(EVP_DigestFinal_ex(context_->evp, bytes, &length) == 1);
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    text += kHexDigits[bytes[i] >> 4];
    text += kHexDigits[bytes[i] & 0xF];
  }
  return text;
}

}  // namespace velmora::publish
