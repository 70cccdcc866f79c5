#include <cstdio>
#include <filesystem>
#include <memory>

#include "publish/build/staging.h"
#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"

namespace velmora::publish {

void PrintLeftover(Leftover leftover) {
  if (leftover == Leftover::kFinished) {
    std::printf("A build that had been killed is finished: its publication is complete.\n");
  } else if (leftover == Leftover::kUndone) {
    std::printf("A build that had been killed is undone: the publication before it is restored.\n");
  }
}

const char* LeftoverName(Leftover leftover) {
  if (leftover == Leftover::kFinished) return "finished";
  return leftover == Leftover::kUndone ? "undone" : "none";
}

void AddRecoverCommand(CLI::App& app, int& status) {
  CLI::App* recover = app.add_subcommand(
      "recover", "Finishes or undoes a build that was killed while it moved files into place");
  const auto output = std::make_shared<std::filesystem::path>();
  AddPath(*recover, "OUT", *output, "The folder of the publication")
      ->required()
      ->check(ExistingFolder());
  Describe(*recover, "0 the publication is complete, 1 it can't be recovered",
           "recover /srv/velmora/publication");
  recover->callback([output, &status] {
    const Leftover leftover = RecoverPublication(*output);
    PrintLeftover(leftover);
    if (leftover == Leftover::kNone) std::printf("There is nothing to recover.\n");
    status = kDone;
  });
}

}  // namespace velmora::publish
