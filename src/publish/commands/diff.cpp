#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "publish/build/publication.h"
#include "publish/build/publication_record.h"
#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"
#include "publish/commands/update_report.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"

namespace velmora::publish {
namespace {

struct DiffCommand {
  std::filesystem::path before;
  std::filesystem::path after;
  std::string listName = "hashlist.dat";
  BuildOptions tree;  // how the new files would be published, if they aren't yet
  ReportOptions report;
  bool json = false;
};

std::string ReadList(const DiffCommand& command, const std::filesystem::path& place) {
  WarnIfUnfinished(place);
  return ReadWholeFile(ListFile(place, command.listName));
}

void RequireReadable(const PublishedList& list, const std::filesystem::path& place) {
  if (list.files.Count() == 0) {
    throw PublishError(ShownPath(place) +
                       ": not a list: patchers find no FILE line in it. Name the list, or its "
                       "publication's folder, with --list if it has a name of its own");
  }
  if (list.isReadWhole && list.refused.empty()) return;
  throw PublishError(ShownPath(place) +
                     ": patchers don't read all of it: see velmora-publish lint");
}

// Whether the new files are a tree that isn't published yet.
bool IsTree(const DiffCommand& command) {
  const std::filesystem::path& after = command.after;
  if (!std::filesystem::is_directory(after) || exists(after / PathOf(command.listName)))
    return false;
  if (!exists(after / kPublicationRecord)) return true;
  throw PublishError(ShownPath(command.after) + ": a publication without a list " +
                     ShownPath(command.listName) + "; --list tells the list's name");
}

// The digest that most likely all of the list's records have.
HashKind HashOf(const PublishedList& list) {
  for (const FileRecord& record : list.files) {
    if (const auto kind = ListedHash(record.contentHash)) return *kind;
  }
  return HashKind::kSha1;
}

// How the tree would follow the old publication.
BuildOptions OptionsOfTree(const DiffCommand& command, const PublishedList& before) {
  BuildOptions options = command.tree;
  const auto list = ListFile(command.before, command.listName);
  options.tree = command.after;
  options.output = list.has_parent_path() ? list.parent_path() : ".";
  options.listName = TextOf(list.filename());
  options.removeFrom = list;
  options.maxRemovedPercent = 100;
  options.allowEmpty = true;
  if (const auto settings = ReadSettings(options.output)) {
    options.payload = *settings;
  } else {
    options.payload.hash = HashOf(before);
  }
  options.payload.stop = &stopAsked;
  return options;
}

std::string ListOfTree(const DiffCommand& command, const PublishedList& before) {
  Preview preview = PreviewUpdate(OptionsOfTree(command, before));
  if (!command.json) {
    std::printf("%zu files, %llu bytes, as build --remove-from %s would publish them:\n",
                preview.summary.files,
                static_cast<unsigned long long>(preview.summary.contentBytes),
                ShownPath(command.before).c_str());
  }
  return std::move(preview.list);
}

std::string NewList(const DiffCommand& command, const PublishedList& before) {
  if (IsTree(command)) return ListOfTree(command, before);
  std::string list = ReadList(command, command.after);
  RequireReadable(PublishedList(list), command.after);
  return list;
}

// Returns false if players can't update from the old files to the new ones.
bool Diff(const DiffCommand& command) {
  const PublishedList before(ReadList(command, command.before));
  RequireReadable(before, command.before);
  const UpdateReport report = ReportOn(before, NewList(command, before));
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
      "diff", "Shows what players of an old publication download and delete for a new one");
  const auto command = std::make_shared<DiffCommand>();
  AddPath(*diff, "OLD", command->before, "A reference list, or a publication's folder")->required();
  AddPath(*diff, "NEW", command->after,
          "The same for the new publication, or a folder of files as for build: then as "
          "build --remove-from OLD would publish them, with OLD's settings")
      ->required();
  diff->add_option("--list", command->listName, "File name of the list in a folder")
      ->type_name("NAME")
      ->capture_default_str();
  AddNamesOption(*diff, command->tree.names);
  AddPath(*diff, "--ignore", command->tree.ignoreFile,
          "A file with rules for what isn't published of a folder of files");
  static_cast<void>(AddReportOptions(*diff, command->report));
  diff->add_flag("--json", command->json, "Print everything as JSON");
  Describe(*diff, "0 players can update, 1 they can't, or the lists can't be compared",
           "diff publication-41 publication-42 --rate 10,100 --latency 30");
  diff->callback([command, &status] { status = Diff(*command) ? kDone : kFailed; });
}

}  // namespace velmora::publish
