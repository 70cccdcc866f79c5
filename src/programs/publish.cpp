// velmora-publish: makes, checks and compares what patchers read.
#include <csignal>
#include <cstdio>
#include <exception>

#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"

namespace velmora::publish {

std::atomic<bool> stopAsked = false;
static_assert(std::atomic<bool>::is_always_lock_free);

namespace {

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
  AddRecoverCommand(app, status);
  StopOnSignals();
  RunCommandLine(app, count, arguments, status);
  return status;
}

}  // namespace
}  // namespace velmora::publish

int main(int count, char** arguments) {
  try {
    return velmora::publish::RunTool(count, arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velmora-publish: %s\n", error.what());
    return velmora::publish::kFailed;
  }
}
