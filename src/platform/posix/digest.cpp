#include "platform/digest.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

namespace velmora::platform {

namespace {

// OpenSSL needs no provider; the handle only records that one was requested.
constexpr DigestHandle kProvider = 1;

struct FreeContext {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

struct Digest {
  std::unique_ptr<EVP_MD_CTX, FreeContext> context{EVP_MD_CTX_new()};
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> value{};
  std::uint32_t length = 0;
  bool isFinished = false;
};

// Looking an algorithm up by name takes locks and searches, so it happens once. The result is never
// freed, because a thread may still be hashing while the process ends.
const EVP_MD* Algorithm(DigestKind kind) {
  static const EVP_MD* const md5 = EVP_MD_fetch(nullptr, "MD5", nullptr);
  static const EVP_MD* const sha1 = EVP_MD_fetch(nullptr, "SHA1", nullptr);
  return kind == DigestKind::kMd5 ? md5 : sha1;
}

bool FailWith(std::int32_t code, std::int32_t& error) {
  error = code;
  return false;
}

bool FailWithLibraryError(std::int32_t& error) {
  const auto code = static_cast<std::int32_t>(ERR_peek_last_error());
  ERR_clear_error();
  return FailWith(code != 0 ? code : EIO, error);
}

Digest* DigestOf(DigestHandle handle) { return reinterpret_cast<Digest*>(handle); }

bool Start(Digest& digest, DigestKind kind) {
  const EVP_MD* const algorithm = Algorithm(kind);
  if (algorithm == nullptr || digest.context == nullptr) return false;
  digest.length = static_cast<std::uint32_t>(EVP_MD_get_size(algorithm));
  return EVP_DigestInit_ex2(digest.context.get(), algorithm, nullptr) == 1;
}

// A caller may ask for the digest more than once, OpenSSL allows it once.
bool Finish(Digest& digest) {
  if (digest.isFinished) return true;
  digest.isFinished = EVP_DigestFinal_ex(digest.context.get(), digest.value.data(), nullptr) == 1;
  return digest.isFinished;
}

}  // namespace

DigestHandle OpenDigestProvider(KeySet, std::int32_t&) { return kProvider; }

DigestHandle CreateDigest(DigestHandle provider, DigestKind kind, std::int32_t& error) {
  if (provider == 0) {
    error = EBADF;
    return 0;
  }
  auto digest = std::make_unique<Digest>();
  if (!Start(*digest, kind)) {
    FailWithLibraryError(error);
    return 0;
  }
  return reinterpret_cast<DigestHandle>(digest.release());
}

bool FeedDigest(DigestHandle digest, const void* data, std::uint32_t length, std::int32_t& error) {
  if (digest == 0) return FailWith(EBADF, error);
  Digest& target = *DigestOf(digest);
  if (target.isFinished) return FailWith(EINVAL, error);
  return EVP_DigestUpdate(target.context.get(), data, length) == 1 || FailWithLibraryError(error);
}

bool GetDigestLength(DigestHandle digest, std::uint32_t& length, std::int32_t& error) {
  if (digest == 0) return FailWith(EBADF, error);
  length = DigestOf(digest)->length;
  return true;
}

bool GetDigest(DigestHandle digest, std::uint8_t* buffer, std::uint32_t& length,
               std::int32_t& error) {
  if (digest == 0) return FailWith(EBADF, error);
  Digest& source = *DigestOf(digest);
  if (length < source.length) return FailWith(ERANGE, error);
  if (!Finish(source)) return FailWithLibraryError(error);
  std::memcpy(buffer, source.value.data(), source.length);
  length = source.length;
  return true;
}

void DestroyDigest(DigestHandle digest) { delete DigestOf(digest); }

void CloseDigestProvider(DigestHandle) {}

}  // namespace velmora::platform
