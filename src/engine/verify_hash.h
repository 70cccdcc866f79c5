// Compares the digest of a block with a hash of the reference list.
#pragma once

#include <cstdint>
#include <string>

namespace velmora {

// True when the digest of the block, as upper-case hexadecimal text, equals `referenceHash` byte
// for byte. A reference of exactly 32 characters means MD5 (RFC 1321), any other SHA-1 (RFC 3174).
// Both texts, or the failure of the digest service, go to the session log. A failure returns false.
// Worker thread.
[[nodiscard]] bool VerifyHash(const void* data, std::uint32_t length,
                              const std::string& referenceHash);

}  // namespace velmora
