// The commands of velmora-publish. Each adds its subcommand with all its options to `app`; when the
// command line names it, its work runs within the parsing and leaves its exit status in `status`.
// What stops a command goes out as an exception with a text for the user.
#pragma once

#include <CLI/CLI.hpp>
#include <atomic>

namespace velmora::publish {

// Exit statuses of the tool.
inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;      // errors were found, or the work couldn't be done
inline constexpr int kBadCommand = 2;  // the command line makes no sense
inline constexpr int kWarned = 3;      // nothing worse than warnings was found

// True as soon as the user presses Ctrl-C or the pipeline ends the tool: the work stops between two
// pieces, and cleans up behind itself.
extern std::atomic<bool> stopAsked;

void AddBuildCommand(CLI::App& app, int& status);
void AddDiffCommand(CLI::App& app, int& status);
void AddLintCommand(CLI::App& app, int& status);
void AddVerifyCommand(CLI::App& app, int& status);

}  // namespace velmora::publish
