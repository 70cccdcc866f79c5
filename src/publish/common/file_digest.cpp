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

// Kept for each thread: to open one may take longer than to hash a small file.
class Provider {
 public:
  Provider() = default;
  ~Provider() { platform::CloseDigestProvider(handle_); }
  Provider(const Provider&) = delete;
  Provider& operator=(const Provider&) = delete;

  [[nodiscard]] platform::DigestHandle Handle() {
    if (handle_ == 0) handle_ = OpenProvider();
    return handle_;
  }

 private:
  platform::DigestHandle handle_ = 0;
};

thread_local Provider provider;

}  // namespace

FileDigest::FileDigest(HashKind kind) {
  std::int32_t error = 0;
  digest_ = platform::CreateDigest(provider.Handle(), kind, error);
  Require(digest_ != 0);
}

FileDigest::~FileDigest() { platform::DestroyDigest(digest_); }

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
