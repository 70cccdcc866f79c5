// The one place where digests are computed: does this block of bytes have this reference hash?
#pragma once

#include <cstdint>
#include <string>

namespace velmora {

// True when the digest of the block, as upper-case hexadecimal text, equals `referenceHash` byte
// for byte. A reference of exactly 32 characters asks for MD5 (RFC 1321), any other for SHA-1 (RFC
// 3174). Both texts, or the failure of the digest service, go to the session log; a failure is a
// false. Worker thread.
[[nodiscard]] bool VerifyHash(const void* data, std::uint32_t length,
                              const std::string& referenceHash);

}  // namespace velmora
