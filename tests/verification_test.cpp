#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/verify_cache.h"
#include "engine/verify_hash.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

class HashVerification : public EngineTest {};

TEST_F(HashVerification, ReferenceChoosesTheDigest) {
  const std::string md5Empty = "D41D8CD98F00B204E9800998ECF8427E";
  const std::string md5Abc = "900150983CD24FB0D6963F7D28E17F72";
  const std::string sha1Empty = "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709";
  const std::string sha1Abc = "A9993E364706816ABA3E25717850C26C9CD0D89D";
  const struct {
    std::string data;
    std::string reference;
    std::string local;
    bool equal;
  } cases[] = {
      {"abc", md5Abc, md5Abc, true},
      {"abc", sha1Abc, sha1Abc, true},
      {"", md5Empty, md5Empty, true},
      {"", sha1Empty, sha1Empty, true},
      {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d", sha1Abc, false},
      {"abc", sha1Abc.substr(1), sha1Abc, false},
      {"abc", sha1Abc + "0", sha1Abc, false},
      {"abc", sha1Abc + " ", sha1Abc, false},
      {"abc", "", sha1Abc, false},
      {"abc", sha1Abc.substr(0, 32), md5Abc, false},
      {"abd", sha1Abc, "CB4CC28DF0FDBE0ECF9D9662E294B118092A5735", false},
  };
  for (const auto& test : cases) {
    std::filesystem::remove("session.log");
    EXPECT_EQ(
        VerifyHash(test.data.data(), static_cast<std::uint32_t>(test.data.size()), test.reference),
        test.equal);
    const std::string texts = test.local + " [local] vs " + test.reference + " [reference]";
    EXPECT_EQ(LogMessages(), test.equal
                                 ? std::vector<std::string>{"Correct Hash : " + texts}
                                 : (std::vector<std::string>{"Difference Hash Error : " + texts,
                                                             "CompareHash() Error : Code = -9"}));
  }
}

class VerificationCache : public EngineTest {
 protected:
  static std::string Saved() {
    SaveVerifyCache();
    return ReadFile(kCacheFile);
  }
};

const FileRecord kRecord = {.path = "data\\a.pak",
                            .transferHash = "H1",
                            .transferSize = "1",
                            .contentHash = "H2",
                            .contentSize = "2",
                            .compressed = true};

TEST_F(VerificationCache, RoundTripInByteOrder) {
  FileRecord other = kRecord;
  other.path = "\x95\x5C";
  other.compressed = false;
  RememberVerified(other);
  RememberVerified(kRecord);
  FileRecord plain = kRecord;
  plain.path = "Z";
  RememberVerified(plain);
  EXPECT_EQ(Saved(), "Z H1 1 H2 2 1\r\ndata\\a.pak H1 1 H2 2 1\r\n\x95\x5C H1 1 H2 2 0\r\n");
  EXPECT_EQ(VerifyCache.Count(), 0U);
  LoadVerifyCache();
  EXPECT_EQ(VerifyCache.Count(), 3U);
  EXPECT_TRUE(IsVerifiedUnchanged(kRecord));
  EXPECT_TRUE(IsVerifiedUnchanged(other));
}

TEST_F(VerificationCache, AnyOtherFieldIsAMiss) {
  RememberVerified(kRecord);
  for (std::string FileRecord::*field :
       {&FileRecord::path, &FileRecord::transferHash, &FileRecord::transferSize,
        &FileRecord::contentHash, &FileRecord::contentSize}) {
    FileRecord changed = kRecord;
    changed.*field = "0" + changed.*field;
    EXPECT_FALSE(IsVerifiedUnchanged(changed));
  }
  FileRecord changed = kRecord;
  changed.compressed = false;
  EXPECT_FALSE(IsVerifiedUnchanged(changed));
  RememberVerified(changed);
  EXPECT_TRUE(IsVerifiedUnchanged(changed));
  EXPECT_EQ(VerifyCache.Count(), 1U);
}

TEST_F(VerificationCache, EmptyCacheTouchesNothing) {
  SaveVerifyCache();
  EXPECT_FALSE(std::filesystem::exists(kCacheFile));
  WriteFile(kCacheFile, "a H 1 H 1 0\r\n");
  SaveVerifyCache();
  EXPECT_EQ(ReadFile(kCacheFile), "a H 1 H 1 0\r\n");
}

// What the reader makes of a file shows in what is written back.
TEST_F(VerificationCache, Reading) {
  const auto filled = [](std::size_t length) { return std::string(length, 'x'); };
  const std::string start = "b 1 2 3 4 1 ";
  const struct {
    std::string file;
    std::string entries;
  } cases[] = {
      {"a 1 2 3 4 0", "a 1 2 3 4 0\r\n"},
      {"a 1 2 3 4 0\nb 1 2 3 4 1\r\n", "a 1 2 3 4 0\r\nb 1 2 3 4 1\r\n"},
      {" \ta\t1  2 3\v4 7 ignored\r\n", "a 1 2 3 4 1\r\n"},
      {"a 1 2\r\n", "a 1 2   0\r\n"},
      {"a\r\n", "a     0\r\n"},
      {"a 1 2 3 4 x\r\n", "a 1 2 3 4 0\r\n"},
      {"a 1 2 3 4 1\r\n\r\n \r\nb 1 2 3 4 1\r\n", "a 1 2 3 4 1\r\nb 1 2 3 4 1\r\n"},
      {"a 1 2 3 4 1\r\na 5 6 7 8 0\r\n", "a 1 2 3 4 1\r\n"},
      // Ctrl-Z ends the file.
      {"a 1 2 3 4 1\r\n\x1A"
       "b 1 2 3 4 1\r\n",
       "a 1 2 3 4 1\r\n"},
      {start + filled(kMaxCacheLine - start.size()) + "\r\nc 1 2 3 4 1\r\n",
       "b 1 2 3 4 1\r\nc 1 2 3 4 1\r\n"},
      {"a 1 2 3 4 1\r\n" + start + filled(kMaxCacheLine + 1 - start.size()) + "\r\nc 1 2 3 4 1\r\n",
       "a 1 2 3 4 1\r\n"},
      // A path with a blank shifts its fields; its hash isn't taken for a size.
      {"data\\a b.pak " + filled(40) + " 1 " + filled(40) + " 2 1\r\nc 1 2 3 4 1\r\n",
       "c 1 2 3 4 1\r\n"},
      {"a " + filled(64) + " 2 3 4 1\r\n", ""},
      {"a 1 " + filled(32) + " 3 4 1\r\n", ""},
      {"a 1 2 3 4 100\r\n", ""},
      {std::string("a 1\0 2 3\r\n", 10) + "b 1 2 3 4 1\r\n", "a 1    0\r\nb 1 2 3 4 1\r\n"},
      {"", ""},
  };
  const auto readsAs = [](const std::string& file, const std::string& entries) {
    WriteFile(kCacheFile, file);
    LoadVerifyCache();
    std::filesystem::remove(kCacheFile);
    EXPECT_TRUE(Saved() == (entries.empty() ? "(none)" : entries)) << file.substr(0, 500);
    std::filesystem::remove(kCacheFile);
  };
  for (const auto& test : cases) {
    readsAs(test.file, test.entries);
    // Across the end of what is read at once.
    std::string before;
    for (int i = 0; before.size() + test.file.size() / 2 < 65536; ++i) {
      before += "!" + std::to_string(10000 + i) + " 1 2 3 4 1\r\n";
    }
    readsAs(before + test.file, before + test.entries);
    before.insert(before.find(' ') + 1, "9");
    readsAs(before + test.file, before + test.entries);
  }
  const std::string endless = "a 1 2 3 4 1\r\n" + filled(200000);
  readsAs(endless, "a 1 2 3 4 1\r\n");
}

TEST_F(VerificationCache, UnwritableFileLosesTheEntries) {
  std::filesystem::create_directories(kCacheFile);
  LoadVerifyCache();
  RememberVerified(kRecord);
  SaveVerifyCache();
  EXPECT_EQ(VerifyCache.Count(), 0U);
  EXPECT_TRUE(std::filesystem::is_directory(kCacheFile));
}

}  // namespace
}  // namespace velmora::test
