#include "platform/posix/desktop/rescue.h"

#include <linux/close_range.h>
#include <signal.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace velmora::platform::desktop {
namespace {

constexpr char kWithoutPage[] = "VELMORA_WITHOUT_PAGE";

// Made in advance, since a signal handler can't allocate memory. Never freed.
struct NextStart {
  std::vector<std::string> arguments;
  std::vector<std::string> environment;
  std::vector<char*> argv;
  std::vector<char*> envp;
};
const NextStart* nextStart = nullptr;

std::vector<std::string> OwnArguments() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  std::vector<std::string> words;
  for (std::string word; std::getline(file, word, '\0');) words.push_back(word);
  return words;
}

std::vector<std::string> OwnEnvironment() {
  std::vector<std::string> variables;
  for (char** each = environ; *each != nullptr; ++each) variables.emplace_back(*each);
  return variables;
}

// As the system takes them; they must outlive the result.
std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Only async-signal-safe functions. The file of /proc leads to the program's own name, by which it
// knows its role.
void Restart(int) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC);
  execve("/proc/self/exe", nextStart->argv.data(), nextStart->envp.data());
  _exit(1);
}

}  // namespace

void RestartOnAbort() {
  auto* const next = new NextStart{OwnArguments(), OwnEnvironment(), {}, {}};
  next->environment.push_back(std::string(kWithoutPage) + "=1");
  next->argv = Pointers(next->arguments);
  next->envp = Pointers(next->environment);
  nextStart = next;
  struct sigaction action = {};
  action.sa_handler = Restart;
  // GLib breaks into a debugger before it aborts.
  sigaction(SIGTRAP, &action, nullptr);
  sigaction(SIGABRT, &action, nullptr);
}

bool StartsWithoutPage() {
  const bool result = std::getenv(kWithoutPage) != nullptr;
  unsetenv(kWithoutPage);
  return result;
}

}  // namespace velmora::platform::desktop
