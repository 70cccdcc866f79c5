#include "publish/build/prune.h"

#include <cstdio>
#include <memory>
#include <string>

#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"
#include "publish/common/disk_text.h"

namespace velmora::publish {
namespace {

void PrintPruned(const PruneOptions& options, const PruneSummary& summary) {
  for (const NeedlessPayload& payload : summary.needless) {
    std::printf("%12llu  %s\n", static_cast<unsigned long long>(payload.size),
                ShownPath(payload.path).c_str());
  }
  std::printf("%zu files, %llu bytes %s; %zu files are named by lists\n", summary.needless.size(),
              static_cast<unsigned long long>(summary.bytes),
              options.deletes ? "removed" : "that no list names", summary.kept);
  if (summary.others > 0) {
    std::printf("%zu other files stay, because no build has recorded that it made them\n",
                summary.others);
  }
  if (!options.deletes && !summary.needless.empty()) {
    std::printf("Nothing is removed; --delete does that.\n");
  }
}

}  // namespace

void AddPruneCommand(CLI::App& app, int& status) {
  CLI::App* prune = app.add_subcommand(
      "prune", "Names or removes payloads in a publication's folder that no list names any more");
  const auto options = std::make_shared<PruneOptions>();
  options->stop = &stopAsked;
  AddPath(*prune, "OUT", options->output, "The folder of the publication")
      ->required()
      ->check(ExistingFolder());
  AddPaths(*prune, "--keep", options->keep,
           "Lists, or publications' folders, whose payloads stay, besides OUT's own list "
           "and others in OUT")
      ->check(ExistingFileOrFolder());
  AddPaths(*prune, "--spare", options->spare, "A file or folder in OUT that stays; repeatable")
      ->allow_extra_args(false);
  prune->add_option("--list", options->listName, "File name of the list in a folder")
      ->type_name("NAME")
      ->capture_default_str();
  prune->add_flag("--delete", options->deletes, "Remove the files, and folders that this empties");
  Describe(*prune, "0 done, 1 failed",
           "prune /srv/velmora/publication --keep last-week.dat --delete");
  prune->callback([options, &status] {
    PrintPruned(*options, Prune(*options));
    status = kDone;
  });
}

}  // namespace velmora::publish
