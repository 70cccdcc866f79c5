#include "publish/build/rollback.h"

#include <cstdio>
#include <memory>
#include <string>

#include "publish/build/staging.h"
#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"

namespace velmora::publish {
namespace {

void PrintRollback(const RollbackSummary& summary) {
  std::printf("%zu added, %zu changed, %zu removed\n", summary.changes.added,
              summary.changes.changed, summary.changes.removed);
  std::printf("%zu files, %zu of which patchers read again; %zu removals\n", summary.files,
              summary.reread, summary.removals);
  if (summary.notRepeated > 0) {
    std::printf(
        "%zu removals are not repeated: they name no file of the publications given. If there "
        "were others in between, add --from for each\n",
        summary.notRepeated);
  }
}

}  // namespace

void AddRollbackCommand(CLI::App& app, int& status) {
  CLI::App* rollback = app.add_subcommand(
      "rollback", "Publishes an earlier publication's files again, for players of a later one");
  const auto options = std::make_shared<RollbackOptions>();
  options->stop = &stopAsked;
  AddPath(*rollback, "OLD", options->earlier, "The folder of the earlier publication")
      ->required()
      ->check(ExistingFolder());
  AddPaths(*rollback, "--from", options->from,
           "A later publication that players may have got: its folder or list; repeatable, "
           "the last one at the end")
      ->required()
      ->allow_extra_args(false)
      ->check(ExistingFileOrFolder());
  AddPath(*rollback, "--into", options->output, "The folder that the web server offers")
      ->required();
  rollback->add_option("--list", options->listName, "File name of the list in all folders")
      ->type_name("NAME")
      ->capture_default_str();
  CLI::Option* const cdn =
      rollback
          ->add_option("--cdn", options->redirection,
                       "Redirect players to this URL, http://host/path: writes enable.cdn")
          ->type_name("URL");
  rollback
      ->add_flag_callback(
          "--no-cdn", [options] { options->takesRedirection = false; },
          "Don't take over the publications' enable.cdn; one that is there stays")
      ->excludes(cdn);
  Describe(*rollback, "0 published, 1 not published: the publication before stands",
           "rollback /srv/velmora/publication-41 --from /srv/velmora/publication-42 --into "
           "/srv/velmora/publication-43");
  rollback->callback([options, &status] {
    PrintLeftover(RecoverPublication(options->output));
    PrintRollback(RollBack(*options));
    status = kDone;
  });
}

}  // namespace velmora::publish
