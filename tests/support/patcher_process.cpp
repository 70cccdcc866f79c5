#include "support/patcher_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

#include "platform/clock.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

constexpr std::uint32_t kPatience = 10000;
constexpr useconds_t kStep = 2000;

template <typename Condition>
bool Await(Condition condition) {
  const std::uint32_t start = platform::TickCount();
  while (!condition()) {
    if (platform::TickCount() - start > kPatience) return false;
    usleep(kStep);
  }
  return true;
}

void BecomeOutput(const std::string& file, int stream) {
  const int output = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  dup2(output, stream);
  close(output);
}

}  // namespace

PatcherProcess::PatcherProcess(const std::string& program,
                               const std::vector<std::string>& arguments, std::string name)
    : name_(std::move(name)) {
  std::vector<char*> words = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) {
    words.push_back(const_cast<char*>(argument.c_str()));
  }
  words.push_back(nullptr);
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  id_ = fork();
  if (id_ == 0) {
    dup2(ends[0], STDIN_FILENO);
    BecomeOutput(name_ + ".out", STDOUT_FILENO);
    BecomeOutput(name_ + ".err", STDERR_FILENO);
    execv(words[0], words.data());
    _exit(126);
  }
  close(ends[0]);
  input_ = ends[1];
}

PatcherProcess::~PatcherProcess() {
  EndInput();
  if (ended_) return;
  kill(id_, SIGKILL);
  waitpid(id_, nullptr, 0);
}

void PatcherProcess::Send(const std::string& command) const {
  const std::string line = command + "\n";
  EXPECT_EQ(write(input_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
}

void PatcherProcess::EndInput() {
  if (input_ >= 0) close(std::exchange(input_, -1));
}

bool PatcherProcess::HasShown(const std::string& text) const {
  return Await([&] { return Output().find(text) != std::string::npos; });
}

int PatcherProcess::Wait() {
  int status = 0;
  ended_ = ended_ || Await([&] { return waitpid(id_, &status, WNOHANG) == id_; });
  return ended_ && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string PatcherProcess::Output() const { return ReadFile(name_ + ".out"); }

std::string PatcherProcess::Errors() const { return ReadFile(name_ + ".err"); }

}  // namespace velmora::test
