// velmora-publish: makes, checks and compares what patchers read.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/console.h"
#include "platform/disk.h"
#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"

namespace velmora::publish {

std::atomic<bool> stopAsked = false;
static_assert(std::atomic<bool>::is_always_lock_free);

namespace {

int RunTool(const std::vector<std::string>& arguments) {
  CLI::App app("Makes, checks and compares what the patcher Velmora Update reads",
               "velmora-publish");
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // "//server/share" is a path
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
  platform::CallWhenAskedToStop([] { stopAsked = true; });
  RunCommandLine(app, arguments, status);
  return status;
}

// The exit status once the output is written. Somebody who reads no further isn't told.
int StatusOfOutput(int status) {
  const platform::OutputEnd end = platform::EndOutput();
  if (end.isWritten) return status;
  if (!end.isReaderGone) {
    const std::string reason = end.reason.empty() ? "" : ": " + end.reason;
    std::fprintf(stderr, "velmora-publish: the output can't be written%s%s\n", reason.c_str(),
                 status == kDone ? "; the command itself succeeded" : "");
  }
  return status == kBadCommand ? status : kFailed;
}

void PrintError(const std::string& error) {
  std::fprintf(stderr, "velmora-publish: %s\n", error.c_str());
}

}  // namespace
}  // namespace velmora::publish

int main(int count, char** arguments) {
  using namespace velmora;
  platform::PrepareStandardStreams();
  platform::AllowLongPaths();
  int status = publish::kFailed;
  try {
    status = publish::RunTool(platform::CommandLineArguments(count, arguments));
  } catch (const std::filesystem::filesystem_error& error) {
    publish::PrintError(publish::ShownPath(error.path1()) + ": " +
                        platform::ErrorText(error.code()));
  } catch (const std::exception& error) {
    publish::PrintError(error.what());
  }
  return publish::StatusOfOutput(status);
}
