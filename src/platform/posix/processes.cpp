#include "platform/processes.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/posix/native_path.h"

namespace velmora::platform {
namespace {

// Of the hidden window's message queue, only the quit message matters.
bool quitPosted = false;

// The successor replaces this process when it ends. So it keeps the terminal, the shell's job and
// the foreground group, and the shell gets its exit status.
struct Successor {
  std::string file;
  std::string parameters;
};
Successor successor;

// The parameters as arguments, split at every space; the successor joins them with spaces again. As
// one argument, a long line would exceed the system's limit.
std::vector<std::string> SplitAtSpaces(const std::string& text) {
  std::vector<std::string> parts;
  for (std::size_t start = 0; !text.empty() && start <= text.size();) {
    const std::size_t end = std::min(text.find(' ', start), text.size());
    parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

// The words as execv expects them; they must outlive the result.
std::vector<char*> ArgumentVector(std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return arguments;
}

// While another process has the file open for writing, it can't be run, so try again for a while.
void BecomeSuccessor() {
  constexpr int kAttempts = 100;
  std::vector<std::string> words = SplitAtSpaces(successor.parameters);
  words.insert(words.begin(), successor.file);
  const std::vector<char*> arguments = ArgumentVector(words);
  close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    execv(arguments[0], arguments.data());
    if (errno != ETXTBSY) return;
    Pause(10);
  }
}

bool IsRunnable(const std::string& native) { return access(native.c_str(), X_OK) == 0; }

bool Exists(const std::string& native) { return access(native.c_str(), F_OK) == 0; }

bool IsWindowsProgram(const std::string& native) {
  std::array<char, 2> magic{};
  const int file = open(native.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  const bool read = ::read(file, magic.data(), magic.size()) == 2;
  close(file);
  return read && magic[0] == 'M' && magic[1] == 'Z';
}

std::string OnSearchPath(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::string_view rest = path == nullptr ? "/usr/bin:/bin" : path;
  while (!rest.empty()) {
    const std::string_view folder = rest.substr(0, rest.find(':'));
    rest.remove_prefix(std::min(folder.size() + 1, rest.size()));
    std::string candidate(folder);
    candidate.append("/").append(name);
    if (!folder.empty() && IsRunnable(candidate)) return candidate;
  }
  return {};
}

std::string AbsolutePath(const std::string& native) {
  char* const absolute = realpath(native.c_str(), nullptr);
  std::string result = absolute == nullptr ? native : absolute;
  std::free(absolute);
  return result;
}

std::string FindProgram(const std::string& name, const std::string& directory) {
  for (const std::string& folder : {directory, std::string(".")}) {
    if (folder.empty()) continue;
    std::string candidate = folder;
    candidate.append("/").append(name);
    if (Exists(candidate)) return AbsolutePath(candidate);
  }
  return OnSearchPath(name);
}

// The words of a command line: separated by spaces and tabs, which double quotes protect.
std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  bool inWord = false;
  bool quoted = false;
  for (const char c : text) {
    if (!quoted && (c == ' ' || c == '\t')) {
      inWord = false;
      continue;
    }
    if (!inWord) words.emplace_back();
    inWord = true;
    if (c == '"') {
      quoted = !quoted;
    } else {
      words.back() += c;
    }
  }
  return words;
}

// The command for a launch, or what is missing for it.
struct LaunchCommand {
  std::vector<std::string> words;
  std::string missing;
};

LaunchCommand CommandFor(const std::string& file, const std::string& directory,
                         const std::string& parameters) {
  if (file == "explorer") {
    const std::string opener = OnSearchPath("xdg-open");
    if (opener.empty()) return {{}, "xdg-open isn't installed"};
    return {{opener, NativePath(parameters)}, ""};
  }
  const std::string program = FindProgram(NativePath(file), directory);
  if (program.empty()) return {{}, "there is no such program"};
  LaunchCommand command;
  if (IsWindowsProgram(program)) {
    const std::string wine = OnSearchPath("wine");
    if (wine.empty()) return {{}, "it is a Windows program, and Wine isn't installed"};
    command.words.push_back(wine);
  }
  command.words.push_back(program);
  for (std::string& word : Words(parameters)) command.words.push_back(std::move(word));
  return command;
}

void Report(int report, int error) { static_cast<void>(!write(report, &error, sizeof error)); }

// Runs in the child between fork and exec, so it may only use async-signal-safe functions. If the
// program fails to start, the error is written to `report`, which otherwise just closes.
[[noreturn]] void RunDetached(const char* directory, char* const* arguments, int report) {
  constexpr int kReport = STDERR_FILENO + 1;
  setsid();
  const pid_t child = fork();
  if (child < 0) Report(report, errno);
  if (child != 0) _exit(0);
  const int nothing = open("/dev/null", O_RDWR);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(nothing, stream);
  if (report != kReport) dup2(report, kReport);
  fcntl(kReport, F_SETFD, FD_CLOEXEC);
  close_range(kReport + 1, UINT_MAX, 0);
  signal(SIGPIPE, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  if (directory[0] == '\0' || chdir(directory) == 0) execv(arguments[0], arguments);
  Report(kReport, errno);
  _exit(127);
}

// The error that the detached child has reported; 0 if its program runs.
int ReportedError(int report) {
  int error = 0;
  ssize_t count = 0;
  do {
    count = read(report, &error, sizeof error);
  } while (count < 0 && errno == EINTR);
  return count == sizeof error ? error : 0;
}

// Starts the command as a process that isn't a child of this one. Returns an error of errno.h, or
// 0.
int StartDetached(const std::string& directory, std::vector<std::string>& words) {
  const std::vector<char*> arguments = ArgumentVector(words);
  std::array<int, 2> report{};
  if (pipe2(report.data(), O_CLOEXEC) != 0) return errno;
  const pid_t child = fork();
  if (child == 0) RunDetached(directory.c_str(), arguments.data(), report[1]);
  int error = child < 0 ? errno : 0;
  close(report[1]);
  if (child > 0) {
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    error = ReportedError(report[0]);
  }
  close(report[0]);
  return error;
}

}  // namespace

bool RegisterHiddenWindow() { return true; }

void CreateHiddenWindow() { quitPosted = false; }

void CloseHiddenWindow() { DestroyHiddenWindow(); }

void DestroyHiddenWindow() { quitPosted = true; }

// The caller has already posted the quit message; nothing else in this process could.
void PumpUntilQuit() {
  if (!quitPosted) std::abort();
}

std::string ModulePath() {
  std::array<char, PATH_MAX> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  return length <= 0 ? std::string() : std::string(path.data(), static_cast<std::size_t>(length));
}

std::string WorkingDirectory(std::size_t bufferSize) {
  std::string directory(bufferSize, '\0');
  if (getcwd(directory.data(), directory.size()) == nullptr) return {};
  directory.resize(std::strlen(directory.c_str()));
  return directory;
}

std::string ShortPath(const std::string& path, std::size_t) { return path; }

std::string SystemFolder(std::size_t) { return {}; }

// A name in the abstract socket namespace, which the system frees when its last holder ends. The
// handle is the descriptor plus 1.
NamedMutex CreateNamedMutex(const char* name) {
  const int socketFile = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socketFile < 0) return {};
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string key = std::string(name) + "-" + std::to_string(getuid());
  key.copy(address.sun_path + 1, sizeof address.sun_path - 1);
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + key.size());
  const bool bound = bind(socketFile, reinterpret_cast<sockaddr*>(&address), length) == 0;
  const NamedMutex mutex{static_cast<std::uintptr_t>(socketFile) + 1, !bound};
  if (bound || errno == EADDRINUSE) return mutex;
  ReleaseNamedMutex(mutex);
  return {};
}

void ReleaseNamedMutex(const NamedMutex& mutex) { close(static_cast<int>(mutex.handle) - 1); }

void StartSuccessor(const std::string& file, const std::string&, const std::string& parameters) {
  successor = {"./" + file, parameters};
}

std::string LaunchProgram(const std::string& file, const std::optional<std::string>& directory,
                          const std::string& parameters) {
  const std::string folder = directory ? NativePath(*directory) : std::string();
  LaunchCommand command = CommandFor(file, folder, parameters);
  if (!command.missing.empty()) return command.missing;
  const int error = StartDetached(folder, command.words);
  return error == 0 ? std::string() : std::strerror(error);
}

void EndProcess(int exitCode) {
  std::fflush(nullptr);
  if (!successor.file.empty()) BecomeSuccessor();
  _exit(exitCode);
}

}  // namespace velmora::platform
