#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/verify_cache.h"
#include "engine/verify_hash.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

using HashVerification = EngineTest;

TEST_F(HashVerification, ReferenceChoosesTheDigest) {
  const std::string md5 = "900150983CD24FB0D6963F7D28E17F72";
  const std::string sha1 = "A9993E364706816ABA3E25717850C26C9CD0D89D";
  const struct {
    std::string data;
    std::string reference;
    std::string local;
  } cases[] = {
      {"abc", md5, md5},
      {"abc", sha1, sha1},
      {"", "", "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709"},
      {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d", sha1},
      {"abc", sha1.substr(0, 31), sha1},
      {"abc", sha1.substr(0, 32), md5},
      {"abc", sha1.substr(0, 33), sha1},
  };
  for (const auto& test : cases) {
    std::filesystem::remove("session.log");
    const bool isEqual = test.local == test.reference;
    const auto size = static_cast<std::uint32_t>(test.data.size());
    EXPECT_EQ(VerifyHash(test.data.data(), size, test.reference), isEqual) << test.reference;
    const std::string texts = test.local + " [local] vs " + test.reference + " [reference]";
    std::vector<std::string> logged = {"Correct Hash : " + texts};
    if (!isEqual) logged = {"Difference Hash Error : " + texts, "CompareHash() Error : Code = -9"};
    EXPECT_EQ(LogMessages(), logged);
  }
}

using VerificationCache = EngineTest;

std::string Saved() {
  SaveVerifyCache();
  EXPECT_EQ(VerifyCache.Count(), 0U);
  return ReadFile(kCacheFile);
}

const FileRecord kRecord = {"data\\a.pak", "H1", "1", "H2", "2", true};

TEST_F(VerificationCache, RoundTripInByteOrder) {
  EXPECT_EQ(Saved(), "(none)");  // an empty cache touches nothing
  const FileRecord later = {"\x95\x5C", "H1", "1", "H1", "1", false};
  RememberVerified(later);
  RememberVerified(kRecord);
  const std::string saved = "data\\a.pak H1 1 H2 2 1\r\n\x95\x5C H1 1 H1 1 0\r\n";
  EXPECT_EQ(Saved(), saved);
  EXPECT_EQ(Saved(), saved);
  LoadVerifyCache();
  EXPECT_TRUE(IsVerifiedUnchanged(kRecord) && IsVerifiedUnchanged(later));

  std::filesystem::remove(kCacheFile);
  std::filesystem::create_directories(kCacheFile);
  SaveVerifyCache();  // entries that can't be written are lost
  EXPECT_EQ(VerifyCache.Count(), 0U);
}

TEST_F(VerificationCache, AnyOtherFieldIsAMiss) {
  RememberVerified(kRecord);
  std::vector<FileRecord> others(6, kRecord);
  others[0].path += "0";
  others[1].transferHash += "0";
  others[2].transferSize += "0";
  others[3].contentHash += "0";
  others[4].contentSize += "0";
  others[5].compressed = false;
  for (const FileRecord& other : others) EXPECT_FALSE(IsVerifiedUnchanged(other));
  RememberVerified(others[5]);
  EXPECT_TRUE(IsVerifiedUnchanged(others[5]));
  EXPECT_EQ(VerifyCache.Count(), 1U);
}

// What the reader makes of a file shows in what is written back.
TEST_F(VerificationCache, Reading) {
  const auto filled = [](std::size_t length) { return std::string(length, 'x'); };
  const std::string start = "b 1 2 3 4 1 ";
  const struct {
    std::string file;
    std::string entries;
  } cases[] = {
      {"a 1 2 3 4 0\nb 1 2 3 4 1", "a 1 2 3 4 0\r\nb 1 2 3 4 1\r\n"},
      {" \ta\t1  2 3\v4 7 ignored\r\n", "a 1 2 3 4 1\r\n"},
      {"a 1 2\r\nb\r\n", "a 1 2   0\r\nb     0\r\n"},
      {"a 1 2 3 4 x\r\n\r\n \r\na 5 6 7 8 1\r\n", "a 1 2 3 4 0\r\n"},
      {"a 1 2 3 4 1\r\n\x1A\r\nb 1 2 3 4 1\r\n", "a 1 2 3 4 1\r\n"},  // Ctrl-Z ends the file
      {start + filled(kMaxCacheLine - start.size()) + "\r\nc 1 2 3 4 1\r\n",
       "b 1 2 3 4 1\r\nc 1 2 3 4 1\r\n"},
      {"a 1 2 3 4 1\r\n" + start + filled(kMaxCacheLine + 1 - start.size()) + "\r\nc 1 2 3 4 1\r\n",
       "a 1 2 3 4 1\r\n"},
      // A path with a space shifts its fields; its hash isn't taken for a size.
      {"data\\a b.pak " + filled(40) + " 1 " + filled(40) + " 2 1\r\nc 1 2 3 4 1\r\n",
       "c 1 2 3 4 1\r\n"},
      {"a " + filled(64) + " 2 3 4 1\r\na 1 " + filled(32) + " 3 4 1\r\na 1 2 3 4 100\r\n", ""},
      {std::string("a 1\0 2 3\r\n", 10) + "b 1 2 3 4 1\r\n", "a 1    0\r\nb 1 2 3 4 1\r\n"},
  };
  const auto readsAs = [](const std::string& file, const std::string& entries) {
    WriteFile(kCacheFile, file);
    LoadVerifyCache();
    std::filesystem::remove(kCacheFile);
    EXPECT_TRUE(Saved() == (entries.empty() ? "(none)" : entries)) << file.substr(0, 500);
  };
  for (const auto& test : cases) {
    readsAs(test.file, test.entries);
    // The same across the end of the first chunk of 64 KiB that is read.
    std::string before;
    for (int i = 10000; before.size() + test.file.size() / 2 < 65536; ++i) {
      before += "!" + std::to_string(i) + " 1 2 3 4 1\r\n";
    }
    readsAs(before + test.file, before + test.entries);
    before.insert(before.find(' ') + 1, "9");
    readsAs(before + test.file, before + test.entries);
  }
  readsAs("a 1 2 3 4 1\r\n" + filled(200000), "a 1 2 3 4 1\r\n");
}

}  // namespace
}  // namespace velmora::test
