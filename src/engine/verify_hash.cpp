#include "engine/verify_hash.h"

#include <vector>

#include "base/ascii.h"
#include "platform/digest.h"
#include "settings/session_log.h"

namespace velmora {
namespace {

constexpr std::size_t kMd5TextLength = 32;
constexpr std::int32_t kHashesDiffer = -9;

// The handles of one verification, closed on every way out.
struct Handles {
  Handles() = default;
  Handles(const Handles&) = delete;
  Handles& operator=(const Handles&) = delete;
  ~Handles() {
    platform::DestroyDigest(digest);
    platform::CloseDigestProvider(provider);
  }

  platform::DigestHandle provider = 0;
  platform::DigestHandle digest = 0;
};

// Each stage logs its own failure and throws the system's code, which VerifyHash catches.
using FailureCode = std::int32_t;

void OpenProvider(Handles& handles) {
  FailureCode error = 0;
  handles.provider = platform::OpenDigestProvider(platform::KeySet::kDefault, error);
  if (handles.provider == 0 && error == platform::kErrorBadKeySet) {
    handles.provider = platform::OpenDigestProvider(platform::KeySet::kCreate, error);
  }
  if (handles.provider == 0) {
    LogMessage("VerifyHash() : Error in CryptAcquireContext() : Code = \n");
    throw error;
  }
}

void HashBlock(Handles& handles, platform::DigestKind kind, const void* data,
               std::uint32_t length) {
  FailureCode error = 0;
  handles.digest = platform::CreateDigest(handles.provider, kind, error);
  if (handles.digest == 0) {
    LogMessage("VerifyHash() : Error in CryptCreateHash() : Code = \n");
    throw error;
  }
  if (!platform::FeedDigest(handles.digest, data, length, error)) {
    LogMessage("VerifyHash() : Error in CryptHashData() : Code = %d\n", error);
    throw error;
  }
}

std::vector<std::uint8_t> ReadDigest(const Handles& handles) {
  FailureCode error = 0;
  std::uint32_t length = 0;
  std::vector<std::uint8_t> digest;
  bool read = platform::GetDigestLength(handles.digest, length, error);
  if (read) {
    digest.resize(length);
    read = platform::GetDigest(handles.digest, digest.data(), length, error);
  }
  if (!read) {
    LogMessage("VerifyHash() : Error in CryptGetHashParam() : Code = %d\n", error);
    throw error;
  }
  return digest;
}

std::string HexadecimalText(const std::vector<std::uint8_t>& digest) {
  std::string text;
  text.reserve(digest.size() * 2);
  for (const std::uint8_t byte : digest) {
    text += kHexDigits[byte >> 4];
    text += kHexDigits[byte & 0xF];
  }
  return text;
}

void Compare(const std::string& local, const std::string& reference) {
  if (local == reference) {
    LogMessage("Correct Hash : %s [local] vs %s [reference]\n", local.c_str(), reference.c_str());
    return;
  }
  LogMessage("Difference Hash Error : %s [local] vs %s [reference]\n", local.c_str(),
             reference.c_str());
  throw kHashesDiffer;
}

}  // namespace

bool VerifyHash(const void* data, std::uint32_t length, const std::string& referenceHash) {
  Handles handles;
  try {
    OpenProvider(handles);
    const bool isMd5 = referenceHash.size() == kMd5TextLength;
    HashBlock(handles, isMd5 ? platform::DigestKind::kMd5 : platform::DigestKind::kSha1, data,
              length);
    Compare(HexadecimalText(ReadDigest(handles)), referenceHash);
    return true;
  } catch (const FailureCode code) {
    LogMessage("CompareHash() Error : Code = %d\n", code);
    return false;
  }
}

}  // namespace velmora
