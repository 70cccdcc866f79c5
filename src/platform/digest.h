// Digests of byte blocks: MD5 (RFC 1321) and SHA-1 (RFC 3174), in the steps in which a digest
// service is asked: open a provider, create a hash object, feed it, ask for the digest, drop both.
//
// A handle of 0 is none; operations on it fail or, where they give nothing, do nothing. Every
// failing operation gives the system's code in `error`. Handles belong to the thread that opened
// them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora::platform {

using DigestHandle = std::uintptr_t;

enum class DigestKind { kMd5, kSha1 };
enum class KeySet { kDefault, kCreate };

// The error of OpenDigestProvider that a second attempt with KeySet::kCreate may cure.
inline constexpr std::int32_t kErrorBadKeySet = static_cast<std::int32_t>(0x80090016);

[[nodiscard]] DigestHandle OpenDigestProvider(KeySet keySet, std::int32_t& error);
[[nodiscard]] DigestHandle CreateDigest(DigestHandle provider, DigestKind kind,
                                        std::int32_t& error);

// Takes the whole block in one call.
[[nodiscard]] bool FeedDigest(DigestHandle digest, const void* data, std::uint32_t length,
                              std::int32_t& error);

// Length of the digest in bytes.
[[nodiscard]] bool GetDigestLength(DigestHandle digest, std::uint32_t& length, std::int32_t& error);

// The digest's bytes; `length` is the room at `buffer` going in and the bytes stored coming out.
[[nodiscard]] bool GetDigest(DigestHandle digest, std::uint8_t* buffer, std::uint32_t& length,
                             std::int32_t& error);

void DestroyDigest(DigestHandle digest);
void CloseDigestProvider(DigestHandle provider);

}  // namespace velmora::platform
