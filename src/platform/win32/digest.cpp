#include "platform/digest.h"

// windows.h comes first: the other header needs it.
// clang-format off
#include <windows.h>
#include <wincrypt.h>
// clang-format on

#include <algorithm>

namespace velmora::platform {

static_assert(kErrorBadKeySet == NTE_BAD_KEYSET);

namespace {

bool RecordError(bool succeeded, std::int32_t& error) {
  if (!succeeded) error = static_cast<std::int32_t>(GetLastError());
  return succeeded;
}

bool GetHashValue(DigestHandle digest, BYTE* buffer, std::uint32_t& length, std::int32_t& error) {
  DWORD size = length;
  const bool succeeded = CryptGetHashParam(digest, HP_HASHVAL, buffer, &size, 0) != FALSE;
  if (succeeded) length = size;
  return RecordError(succeeded, error);
}

}  // namespace

DigestHandle OpenDigestProvider(KeySet keySet, std::int32_t& error) {
  const DWORD flags = keySet == KeySet::kCreate ? CRYPT_NEWKEYSET : 0;
  HCRYPTPROV provider = 0;
  const bool opened =
      CryptAcquireContextA(&provider, nullptr, nullptr, PROV_RSA_FULL, flags) != FALSE;
  return RecordError(opened, error) ? provider : 0;
}

DigestHandle CreateDigest(DigestHandle provider, DigestKind kind, std::int32_t& error) {
  const ALG_ID algorithm = kind == DigestKind::kMd5 ? CALG_MD5 : CALG_SHA1;
  HCRYPTHASH hash = 0;
  return RecordError(CryptCreateHash(provider, algorithm, 0, 0, &hash) != FALSE, error) ? hash : 0;
}

bool FeedDigest(DigestHandle digest, const void* data, std::uint32_t length, std::int32_t& error) {
  // Wine returns a wrong SHA-1 for one call with 600 MiB. An empty block takes one call, too.
  constexpr std::uint32_t kSlice = 64U << 20;
  const auto* bytes = static_cast<const BYTE*>(data);
  std::uint32_t fed = 0;
  do {
    const std::uint32_t size = std::min(kSlice, length - fed);
    if (!RecordError(CryptHashData(digest, bytes + fed, size, 0) != FALSE, error)) return false;
    fed += size;
  } while (fed < length);
  return true;
}

bool GetDigestLength(DigestHandle digest, std::uint32_t& length, std::int32_t& error) {
  return GetHashValue(digest, nullptr, length, error);
}

bool GetDigest(DigestHandle digest, std::uint8_t* buffer, std::uint32_t& length,
               std::int32_t& error) {
  return GetHashValue(digest, buffer, length, error);
}

void DestroyDigest(DigestHandle digest) { CryptDestroyHash(digest); }

void CloseDigestProvider(DigestHandle provider) { CryptReleaseContext(provider, 0); }

}  // namespace velmora::platform
