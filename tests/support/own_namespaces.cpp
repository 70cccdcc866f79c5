// Gives each test program its own network and mount namespace before the first test. Patchers of
// one user exclude each other by a name that belongs to the network namespace, and so do servers by
// their ports; this way tests can run in parallel, even while a patcher is in use. An ordinary user
// owns these namespaces, and can use port 80 and mount disks in them as root can. On a system that
// forbids this, the test programs of one user run one after the other.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace velmora::test {
namespace {

constexpr int kNamespaces = CLONE_NEWNET | CLONE_NEWNS;

bool BecomeOwner() {
  const std::string user = std::to_string(getuid());
  const std::string group = std::to_string(getgid());
  if (unshare(kNamespaces | CLONE_NEWUSER) != 0) return false;
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << user << " " << user << " 1";
  std::ofstream("/proc/self/gid_map") << group << " " << group << " 1";
  return true;
}

void StartLoopback() {
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP;
  const int any = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_EQ(ioctl(any, SIOCSIFFLAGS, &request), 0);
  close(any);
}

void WaitForOtherTests() {
  const std::string name = "velmora-tests-" + std::to_string(getuid()) + ".lock";
  const int lock = open((std::filesystem::temp_directory_path() / name).c_str(),
                        O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  EXPECT_EQ(flock(lock, LOCK_EX), 0);  // until the process ends
}

bool EnterOwnNamespaces() {
  if (unshare(kNamespaces) != 0 && !BecomeOwner()) {
    WaitForOtherTests();
    return false;
  }
  EXPECT_EQ(mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr), 0);
  StartLoopback();
  return true;
}

std::ptrdiff_t ThreadCount() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

class OwnNamespaces : public testing::Environment {
  void SetUp() override {
    [[maybe_unused]] static const bool once = EnterOwnNamespaces();  // not again for --gtest_repeat
    threads_ = ThreadCount();
  }
  // The patcher's worker ends by itself after its run has: until it has freed what it holds, it
  // looks like a leak.
  void TearDown() override {
    for (int i = 0; i < 1000 && ThreadCount() > threads_; ++i) usleep(1000);
  }

  std::ptrdiff_t threads_ = 0;
};

[[maybe_unused]] const testing::Environment* const kOwnNamespaces =
    testing::AddGlobalTestEnvironment(new OwnNamespaces);

}  // namespace
}  // namespace velmora::test
