// The commands of velmora-publish. Each adds its subcommand with all options to `app`. If the
// command line names it, parsing runs it and sets `status` to its exit status. A failure is an
// exception with a text for the user.
#pragma once

#include <CLI/CLI.hpp>
#include <atomic>

#include "publish/build/replacement.h"

namespace velmora::publish {

// Exit statuses of the tool.
inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;      // errors were found, or the command failed
inline constexpr int kBadCommand = 2;  // the command line makes no sense
inline constexpr int kWarned = 3;      // nothing worse than warnings was found

// Set when the user presses Ctrl-C or the tool is asked to terminate. The work then stops between
// two chunks and cleans up.
extern std::atomic<bool> stopAsked;

// What has become of a build that was killed; nothing if none was.
void PrintLeftover(Leftover leftover);

// The same as a word for programs: "none", "finished", "undone".
const char* LeftoverName(Leftover leftover);

void AddBuildCommand(CLI::App& app, int& status);
void AddDiffCommand(CLI::App& app, int& status);
void AddLintCommand(CLI::App& app, int& status);
void AddPruneCommand(CLI::App& app, int& status);
void AddRecoverCommand(CLI::App& app, int& status);
void AddRollbackCommand(CLI::App& app, int& status);
void AddSwitchCommand(CLI::App& app, int& status);
void AddVerifyCommand(CLI::App& app, int& status);

}  // namespace velmora::publish
