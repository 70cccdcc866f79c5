// Digests of byte blocks: MD5 (RFC 1321) and SHA-1 (RFC 3174), in the steps of a digest service:
// open a provider, create a hash object, feed it, get the digest, release both.
//
// A handle of 0 is invalid: operations on it fail or, if they have no result, do nothing. Every
// failing operation stores the system's code in `error`. A handle is used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora::platform {

using DigestHandle = std::uintptr_t;

enum class DigestKind { kMd5, kSha1 };
enum class KeySet { kDefault, kCreate };

// OpenDigestProvider failed with this: a second attempt with KeySet::kCreate may succeed.
inline constexpr std::int32_t kErrorBadKeySet = static_cast<std::int32_t>(0x80090016);

[[nodiscard]] DigestHandle OpenDigestProvider(KeySet keySet, std::int32_t& error);
[[nodiscard]] DigestHandle CreateDigest(DigestHandle provider, DigestKind kind,
                                        std::int32_t& error);

// Adds a block to what is hashed.
[[nodiscard]] bool FeedDigest(DigestHandle digest, const void* data, std::uint32_t length,
                              std::int32_t& error);

// The length of the digest in bytes.
[[nodiscard]] bool GetDigestLength(DigestHandle digest, std::uint32_t& length, std::int32_t& error);

// Stores the digest in `buffer`. `length` is the size of the buffer on entry and the number of
// bytes stored on return. Fails if the buffer is too small.
[[nodiscard]] bool GetDigest(DigestHandle digest, std::uint8_t* buffer, std::uint32_t& length,
                             std::int32_t& error);

void DestroyDigest(DigestHandle digest);
void CloseDigestProvider(DigestHandle provider);

}  // namespace velmora::platform
