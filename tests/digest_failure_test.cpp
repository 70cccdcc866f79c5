// The digest service at its failures, each provoked by a stand-in in the place of the platform's.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/verify_hash.h"
#include "platform/digest.h"
#include "support/workspace.h"

namespace velmora::platform {
namespace {

struct DigestService {
  int opens = 0;                           // how often it was asked to open
  std::vector<std::int32_t> refused = {};  // codes with which the first opens fail, in turn
  bool creates = true;
  bool feeds = true;
  bool knowsLength = true;
  bool givesDigest = true;
  int dropped = 0;  // handles given back
};
DigestService service;

bool Answer(bool works, std::int32_t& error) {
  if (!works) error = 1234;
  return works;
}

}  // namespace

DigestHandle OpenDigestProvider(KeySet keySet, std::int32_t& error) {
  const auto attempt = static_cast<std::size_t>(service.opens++);
  EXPECT_EQ(keySet, attempt == 0 ? KeySet::kDefault : KeySet::kCreate);
  if (attempt >= service.refused.size()) return 1;
  error = service.refused[attempt];
  return 0;
}
DigestHandle CreateDigest(DigestHandle, DigestKind, std::int32_t& error) {
  return Answer(service.creates, error) ? 2 : 0;
}
bool FeedDigest(DigestHandle, const void*, std::uint32_t, std::int32_t& error) {
  return Answer(service.feeds, error);
}
bool GetDigestLength(DigestHandle, std::uint32_t& length, std::int32_t& error) {
  length = 2;
  return Answer(service.knowsLength, error);
}
bool GetDigest(DigestHandle, std::uint8_t* buffer, std::uint32_t& length, std::int32_t& error) {
  buffer[0] = 0x0A;
  buffer[1] = 0xFF;
  length = 2;
  return Answer(service.givesDigest, error);
}
void DestroyDigest(DigestHandle digest) { service.dropped += digest == 0 ? 0 : 1; }
void CloseDigestProvider(DigestHandle provider) { service.dropped += provider == 0 ? 0 : 1; }

}  // namespace velmora::platform

namespace velmora::test {
namespace {

using Lines = std::vector<std::string>;

TEST(DigestFailure, EachStageIsLoggedAndEverythingGivenBack) {
  const std::int32_t badKeySet = platform::kErrorBadKeySet;
  const std::string badKeySetCode = "CompareHash() Error : Code = -2146893802";
  const std::string open = "VerifyHash() : Error in CryptAcquireContext() : Code = ";
  const std::string code = "CompareHash() Error : Code = 1234";
  const struct {
    platform::DigestService service;
    Lines log;
    int opens;
    int dropped;
  } cases[] = {
      {{.refused = {77}}, {open, "CompareHash() Error : Code = 77"}, 1, 0},
      {{.refused = {badKeySet, badKeySet}}, {open, badKeySetCode}, 2, 0},
      {{.refused = {badKeySet, 78}}, {open, "CompareHash() Error : Code = 78"}, 2, 0},
      {{.refused = {badKeySet}}, {"Correct Hash : 0AFF [local] vs 0AFF [reference]"}, 2, 2},
      {{.creates = false}, {"VerifyHash() : Error in CryptCreateHash() : Code = ", code}, 1, 1},
      {{.feeds = false}, {"VerifyHash() : Error in CryptHashData() : Code = 1234", code}, 1, 2},
      {{.knowsLength = false},
       {"VerifyHash() : Error in CryptGetHashParam() : Code = 1234", code},
       1,
       2},
      {{.givesDigest = false},
       {"VerifyHash() : Error in CryptGetHashParam() : Code = 1234", code},
       1,
       2},
  };
  for (const auto& test : cases) {
    const TemporaryFolder folder;
    platform::service = test.service;
    const bool succeeds = test.log.size() == 1;
    EXPECT_EQ(VerifyHash("x", 1, "0AFF"), succeeds);
    EXPECT_EQ(LogMessages(), test.log);
    EXPECT_EQ(platform::service.opens, test.opens);
    EXPECT_EQ(platform::service.dropped, test.dropped);
  }
}

}  // namespace
}  // namespace velmora::test
