// Writes that the system cuts off, provoked by its limit on the size of a file.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <string>

#include "base/text.h"
#include "base/texts.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

// Files can't grow beyond `bytes` as long as it lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
  sighandler_t handler_;
};

class FullDisk : public EngineTest {};

TEST_F(FullDisk, FileThatDoesNotFitIsToldAndTheOldOneStays) {
  const std::string content(50000, 'x');
  Serve({{"/hashlist.dat", FileLine("d\\f.dat", content)}, {"/d/f.dat", content}});
  for (const std::string old : {"(none)", "old"}) {
    ResetDialog();
    std::filesystem::remove("session.log");
    std::filesystem::remove_all("d");
    if (old != "(none)") WriteFile("d/f.dat", old);
    // Where the file has gone, the cache vouches for it from an earlier run.
    const std::string known = old == "(none)" ? Sha1(content) : Sha1(old);
    WriteFile(kCacheFile, "d\\f.dat " + known + " 50000 " + known + " 50000 0\r\n");
    {
      const FileSizeLimit limit(16384);
      ASSERT_TRUE(Run());
    }
    ASSERT_EQ(EventsOf("box").size(), 1U);
    EXPECT_NE(EventsOf("box")[0].find("d\\f.dat"), std::string::npos);
    EXPECT_EQ(LogMessagesWith("WriteFile() : file d\\f.dat : Err = ").size(), 1U);
    EXPECT_EQ(UpdateState, kNotRunning);
    EXPECT_EQ(ReadFile("d/f.dat"), old);
    EXPECT_EQ(ReadFile("_VelmoraUpdate.new"), "(none)");

    ASSERT_TRUE(Run());
    EXPECT_EQ(ReadFile("d/f.dat"), content);
  }
}

TEST_F(FullDisk, CacheKeepsTheLinesThatWentIn) {
  FileRecord record;
  for (int i = 0; i < 200; ++i) {
    record.path = FormatText("file%03d", i);
    record.transferHash = record.contentHash = Sha1(record.path);
    record.transferSize = record.contentSize = "1";
    RememberVerified(record);
  }
  {
    const FileSizeLimit limit(8192);
    SaveVerifyCache();
  }
  EXPECT_EQ(VerifyCache.Count(), 0U);
  LoadVerifyCache();
  EXPECT_GT(VerifyCache.Count(), 50U);
  EXPECT_LT(VerifyCache.Count(), 200U);
  record.path = "file000";
  record.transferHash = record.contentHash = Sha1(record.path);
  EXPECT_TRUE(IsVerifiedUnchanged(record));
}

}  // namespace
}  // namespace velmora::test
