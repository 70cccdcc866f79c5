// Failures of the digest service, from test doubles for the platform's functions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/verify_hash.h"
#include "platform/digest.h"
#include "support/workspace.h"

namespace velmora::platform {
namespace {

struct DigestService {
  int missingKeySets;      // as many opens find none
  std::string failing;     // the operation that fails, with code 1234
  std::string calls = {};  // D and C for opens by key set, R for each released handle
};
DigestService service;

bool Succeeds(const char* operation, std::int32_t& error) {
  error = 1234;
  return service.failing != operation;
}

}  // namespace

DigestHandle OpenDigestProvider(KeySet keySet, std::int32_t& error) {
  service.calls += keySet == KeySet::kDefault ? 'D' : 'C';
  if (service.missingKeySets-- <= 0) return Succeeds("open", error) ? 1 : 0;
  error = kErrorBadKeySet;
  return 0;
}
DigestHandle CreateDigest(DigestHandle, DigestKind, std::int32_t& error) {
  return Succeeds("create", error) ? 2 : 0;
}
bool FeedDigest(DigestHandle, const void*, std::uint32_t, std::int32_t& error) {
  return Succeeds("feed", error);
}
bool GetDigestLength(DigestHandle, std::uint32_t& length, std::int32_t& error) {
  length = 2;
  return Succeeds("length", error);
}
bool GetDigest(DigestHandle, std::uint8_t* buffer, std::uint32_t&, std::int32_t& error) {
  buffer[0] = 0x0A;
  buffer[1] = 0xFF;
  return Succeeds("digest", error);
}
void DestroyDigest(DigestHandle digest) { service.calls += digest == 0 ? "" : "R"; }
void CloseDigestProvider(DigestHandle provider) { service.calls += provider == 0 ? "" : "R"; }

}  // namespace velmora::platform

namespace velmora::test {
namespace {

TEST(DigestFailure, IsLoggedAndEveryHandleIsReleased) {
  const std::string log = "VerifyHash() : Error in Crypt";
  const struct {
    platform::DigestService service;
    std::string logged;
    std::string calls;
  } cases[] = {
      {{0, "open"}, log + "AcquireContext() : Code = ", "D"},
      {{1, "open"}, log + "AcquireContext() : Code = ", "DC"},
      {{1, ""}, "Correct Hash : 0AFF [local] vs 0AFF [reference]", "DCRR"},
      {{0, "create"}, log + "CreateHash() : Code = ", "DR"},
      {{0, "feed"}, log + "HashData() : Code = 1234", "DRR"},
      {{0, "length"}, log + "GetHashParam() : Code = 1234", "DRR"},
      {{0, "digest"}, log + "GetHashParam() : Code = 1234", "DRR"},
  };
  for (const auto& test : cases) {
    const TemporaryFolder folder;
    platform::service = test.service;
    const bool succeeds = test.service.failing.empty();
    std::vector<std::string> messages = {test.logged};
    if (!succeeds) messages.push_back("CompareHash() Error : Code = 1234");
    EXPECT_EQ(VerifyHash("x", 1, "0AFF"), succeeds);
    EXPECT_EQ(LogMessages(), messages);
    EXPECT_EQ(platform::service.calls, test.calls);
  }
}

}  // namespace
}  // namespace velmora::test
