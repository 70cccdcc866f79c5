// velmora-publish: makes, checks and compares what patchers read.
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"

namespace velmora::publish {

std::atomic<bool> stopAsked = false;
static_assert(std::atomic<bool>::is_always_lock_free);

namespace {

std::atomic<bool> isReaderGone = false;

// A second signal of the same kind ends the process at once.
void StopOnSignals() {
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
    // nohup wants the tool to go on when its terminal is gone.
    const bool isIgnored = std::signal(number, SIG_IGN) == SIG_IGN;
    if (number == SIGHUP && isIgnored) continue;
    std::signal(number, [](int caught) {
      stopAsked = true;
      std::signal(caught, SIG_DFL);
    });
  }
  // A build goes on although nobody reads its output: its publication is what counts.
  std::signal(SIGPIPE, [](int) { isReaderGone = true; });
}

int RunTool(int count, char** arguments) {
  CLI::App app("Makes, checks and compares what the patcher Velmora Update reads",
               "velmora-publish");
  app.require_subcommand(1);
  app.set_version_flag("--version", Version());
  app.footer("velmora-publish COMMAND --help tells a command's options and exit status.");
  int status = kDone;
  AddBuildCommand(app, status);
  AddLintCommand(app, status);
  AddDiffCommand(app, status);
  AddVerifyCommand(app, status);
  AddSwitchCommand(app, status);
  AddRollbackCommand(app, status);
  AddPruneCommand(app, status);
  AddRecoverCommand(app, status);
  StopOnSignals();
  RunCommandLine(app, count, arguments, status);
  return status;
}

// No file that is opened later may take the place of a standard stream that the caller has closed.
void OccupyStandardStreams() {
  std::FILE* file = nullptr;
  do {
    file = std::fopen("/dev/null", "r");
  } while (file != nullptr && fileno(file) <= STDERR_FILENO);
  if (file != nullptr) std::fclose(file);
}

// The exit status once the output is written, which may fail as late as here. Somebody who reads
// no further, such as `head`, knows that and isn't told.
int StatusOfOutput(int status) {
  const bool hadFailed = std::ferror(stdout) != 0;
  errno = 0;
  const bool isWritten = std::fflush(stdout) == 0 && close(STDOUT_FILENO) == 0;
  if (isWritten && !hadFailed) return status;
  if (!isReaderGone) {
    const std::string reason = errno == 0 ? "" : std::string(": ") + std::strerror(errno);
    std::fprintf(stderr, "velmora-publish: the output can't be written%s\n", reason.c_str());
  }
  return status == kBadCommand ? status : kFailed;
}

}  // namespace
}  // namespace velmora::publish

int main(int count, char** arguments) {
  velmora::publish::OccupyStandardStreams();
  int status = velmora::publish::kFailed;
  try {
    status = velmora::publish::RunTool(count, arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velmora-publish: %s\n", error.what());
  }
  return velmora::publish::StatusOfOutput(status);
}
