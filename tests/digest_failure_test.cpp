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
  std::vector<std::int32_t> refusals;  // the codes with which the first opens fail, in turn
  std::string failing;                 // the operation that fails, with code 1234
  std::vector<KeySet> opens = {};
  int released = 0;  // handles
};
DigestService service;

bool Succeeds(const char* operation, std::int32_t& error) {
  error = 1234;
  return service.failing != operation;
}

}  // namespace

DigestHandle OpenDigestProvider(KeySet keySet, std::int32_t& error) {
  const std::size_t attempt = service.opens.size();
  service.opens.push_back(keySet);
  if (attempt >= service.refusals.size()) return 1;
  error = service.refusals[attempt];
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
void DestroyDigest(DigestHandle digest) { service.released += digest == 0 ? 0 : 1; }
void CloseDigestProvider(DigestHandle provider) { service.released += provider == 0 ? 0 : 1; }

}  // namespace velmora::platform

namespace velmora::test {
namespace {

TEST(DigestFailure, IsLoggedAndEveryHandleIsReleased) {
  using platform::KeySet;
  const std::vector<KeySet> once = {KeySet::kDefault};
  const std::vector<KeySet> twice = {KeySet::kDefault, KeySet::kCreate};
  const std::int32_t noKeySet = platform::kErrorBadKeySet;
  const std::string log = "VerifyHash() : Error in Crypt";
  const std::string parameter = log + "GetHashParam() : Code = 1234";
  const struct {
    platform::DigestService service;
    std::string logged;
    std::string code;
    std::vector<KeySet> opens;
    int released;
  } cases[] = {
      {{{77}, ""}, log + "AcquireContext() : Code = ", "77", once, 0},
      {{{noKeySet, noKeySet}, ""}, log + "AcquireContext() : Code = ", "-2146893802", twice, 0},
      {{{noKeySet, 78}, ""}, log + "AcquireContext() : Code = ", "78", twice, 0},
      {{{noKeySet}, ""}, "Correct Hash : 0AFF [local] vs 0AFF [reference]", "", twice, 2},
      {{{}, "create"}, log + "CreateHash() : Code = ", "1234", once, 1},
      {{{}, "feed"}, log + "HashData() : Code = 1234", "1234", once, 2},
      {{{}, "length"}, parameter, "1234", once, 2},
      {{{}, "digest"}, parameter, "1234", once, 2},
  };
  for (const auto& test : cases) {
    const TemporaryFolder folder;
    platform::service = test.service;
    std::vector<std::string> messages = {test.logged};
    if (!test.code.empty()) messages.push_back("CompareHash() Error : Code = " + test.code);
    EXPECT_EQ(VerifyHash("x", 1, "0AFF"), test.code.empty());
    EXPECT_EQ(LogMessages(), messages);
    EXPECT_EQ(platform::service.opens, test.opens);
    EXPECT_EQ(platform::service.released, test.released);
  }
}

}  // namespace
}  // namespace velmora::test
