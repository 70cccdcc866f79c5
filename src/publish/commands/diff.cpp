#include <cstdio>
#include <memory>
#include <string>

#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"
#include "publish/commands/update_report.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"

namespace velmora::publish {
namespace {

struct DiffCommand {
  std::string before;
  std::string after;
  std::string listName = "hashlist.dat";
  ReportOptions report;
  bool json = false;
};

std::string ReadList(const DiffCommand& command, const std::string& place) {
  return ReadWholeFile(ListFile(place, command.listName));
}

void RequireReadable(const PublishedList& list, const std::string& place) {
  if (list.files.Count() == 0) {
    throw PublishError(ShownPath(place) +
                       ": not a list: patchers find no FILE line in it. Name the list, or its "
                       "publication's folder, with --list if it has a name of its own");
  }
  if (list.isReadWhole && list.refused.empty()) return;
  throw PublishError(ShownPath(place) +
                     ": patchers don't read all of it: see velmora-publish lint");
}

// Returns false if players can't update from the old list to the new one.
bool Diff(const DiffCommand& command) {
  const std::string newList = ReadList(command, command.after);
  const PublishedList before(ReadList(command, command.before));
  RequireReadable(before, command.before);
  RequireReadable(PublishedList(newList), command.after);
  const UpdateReport report = ReportOn(before, newList);
  if (command.json) {
    std::printf("%s\n", JsonOf(report, command.report).dump(2).c_str());
  } else {
    PrintReport(report, command.report);
  }
  return report.CanUpdate();
}

}  // namespace

void AddDiffCommand(CLI::App& app, int& status) {
  CLI::App* diff = app.add_subcommand(
      "diff", "Shows what players of an old list download and delete for a new one");
  const auto command = std::make_shared<DiffCommand>();
  diff->add_option("OLD", command->before, "A reference list, or a publication's folder")
      ->required();
  diff->add_option("NEW", command->after, "The same for the new publication")->required();
  diff->add_option("--list", command->listName, "File name of the list in a folder")
      ->capture_default_str();
  static_cast<void>(AddReportOptions(*diff, command->report));
  diff->add_flag("--json", command->json, "Print everything as JSON");
  Describe(*diff, "0 players can update, 1 they can't, or the lists can't be compared",
           "diff publication-41 publication-42 --rate 10,100 --latency 30");
  diff->callback([command, &status] { status = Diff(*command) ? kDone : kFailed; });
}

}  // namespace velmora::publish
