// Gives each test program a network of its own, and mounts of its own, before the first test:
// patchers of one user keep each other out by a name that belongs to the network, and so do servers
// by their ports. So tests run beside each other, and beside a patcher that somebody uses. An
// ordinary user becomes the owner of these namespaces, and may use port 80 and mount disks there as
// root may. Where the system forbids it, test programs of one user wait for each other.
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

bool EnterOwnWorld() {
  if (unshare(kNamespaces) != 0 && !BecomeOwner()) {
    WaitForOtherTests();
    return false;
  }
  EXPECT_EQ(mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr), 0);
  StartLoopback();
  return true;
}

class OwnWorld : public testing::Environment {
  void SetUp() override {
    [[maybe_unused]] static const bool once = EnterOwnWorld();  // also if all is repeated
  }
};

[[maybe_unused]] const testing::Environment* const kOwnWorld =
    testing::AddGlobalTestEnvironment(new OwnWorld);

}  // namespace
}  // namespace velmora::test
