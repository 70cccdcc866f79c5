#include "publish/common/file_digest.h"

#include <array>
#include <cstdint>

#include "base/ascii.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {
namespace {

void Require(bool succeeded) {
  if (!succeeded) throw PublishError("the system's digest service fails");
}

platform::DigestHandle OpenProvider() {
  std::int32_t error = 0;
  const auto provider = platform::OpenDigestProvider(platform::KeySet::kDefault, error);
  if (provider != 0 || error != platform::kErrorBadKeySet) return provider;
  return platform::OpenDigestProvider(platform::KeySet::kCreate, error);
}

}  // namespace

FileDigest::FileDigest(HashKind kind) : provider_(OpenProvider()) {
  std::int32_t error = 0;
  digest_ = platform::CreateDigest(provider_, kind, error);
  if (digest_ == 0) platform::CloseDigestProvider(provider_);
  Require(digest_ != 0);
}

FileDigest::~FileDigest() {
  platform::DestroyDigest(digest_);
  platform::CloseDigestProvider(provider_);
}

void FileDigest::Add(const void* bytes, std::size_t count) {
  std::int32_t error = 0;
  Require(platform::FeedDigest(digest_, bytes, static_cast<std::uint32_t>(count), error));
}

std::string FileDigest::Text() {
  std::array<std::uint8_t, 20> bytes{};
  std::uint32_t length = bytes.size();
  std::int32_t error = 0;
  Require(platform::GetDigest(digest_, bytes.data(), length, error));
  std::string text;
  for (std::uint32_t i = 0; i < length; ++i) {
    text += kHexDigits[bytes[i] >> 4];
    text += kHexDigits[bytes[i] & 0xF];
  }
  return text;
}

}  // namespace velmora::publish
