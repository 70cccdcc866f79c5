#include "publish/file_digest.h"

#include <openssl/evp.h>

#include "publish/publish_error.h"

namespace velmora::publish {

struct FileDigest::Context {
  Context() = default;
  ~Context() { EVP_MD_CTX_free(evp); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  EVP_MD_CTX* evp = EVP_MD_CTX_new();
};

FileDigest::FileDigest(HashKind kind) : context_(std::make_unique<Context>()) {
  const EVP_MD* digest = kind == HashKind::kMd5 ? EVP_md5() : EVP_sha1();
  if (EVP_DigestInit_ex(context_->evp, digest, nullptr) != 1) {
    throw PublishError("the system offers no such digest");
  }
}

FileDigest::~FileDigest() = default;
FileDigest::FileDigest(FileDigest&&) noexcept = default;

void FileDigest::Add(const void* bytes, std::size_t count) {
  EVP_DigestUpdate(context_->evp, bytes, count);
}

std::string FileDigest::Text() {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  unsigned char bytes[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_DigestFinal_ex(context_->evp, bytes, &length);
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0xF];
  }
  return text;
}

}  // namespace velmora::publish
