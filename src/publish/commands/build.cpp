#include <chrono>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "platform/console.h"
#include "publish/build/publication.h"
#include "publish/build/removals.h"
#include "publish/build/staging.h"
#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"
#include "publish/commands/update_report.h"
#include "publish/common/disk_text.h"
#include "publish/common/list_path.h"
#include "publish/common/progress_line.h"

namespace velmora::publish {
namespace {

using Texts = std::vector<std::string>;

void AddRemovals(std::vector<FileRecord>& removals, const Texts& paths, const char* mode) {
  for (const std::string& path : paths) {
    FileRecord& removal = removals.emplace_back();
    removal.path = path;
    removal.transferHash = mode;
  }
}

void AddPlainTypes(std::set<std::string>& plain, const Texts& types) {
  for (const std::string& type : types) {
    const std::string name = FoldedPath(type.starts_with('.') ? type.substr(1) : type);
    if (name.empty() || name.find_first_of("./\\ \n") != std::string::npos) {
      throw CLI::ValidationError("--plain", "\"" + type + "\" is not an extension");
    }
    plain.insert(name);
  }
}

void AddCompressionOptions(CLI::App& build, PayloadOptions& options) {
  AddChoice<Compress>(
      build, "--compress", options.compress,
      {{"always", Compress::kAlways}, {"never", Compress::kNever}, {"pays", Compress::kPays}},
      "Which files are compressed; default: where it pays");
  build.add_option("--effort", options.effort, "How hard to try: 1 is fastest, 12 smallest")
      ->check(CLI::Range(kLeastEffort, kMostEffort))
      ->capture_default_str();
  build.add_option("--pays-from", options.paysFrom, "The least saving in percent that pays")
      ->check(CLI::Range(0U, 99U))
      ->capture_default_str();
  build.add_flag_callback(
      "--try-all", [&options] { options.plainTypes.clear(); },
      "Try files of every type, even those known to be compressed already");
  // Parsed after --try-all wherever it stands, since options run in the order of their definition.
  build
      .add_option_function<Texts>(
          "--plain", [&options](const Texts& types) { AddPlainTypes(options.plainTypes, types); },
          "More extensions of files that aren't even tried")
      ->type_name("EXT,...")
      ->delimiter(',')
      ->allow_extra_args(false);
}

// How the build works and what it prints.
struct BuildManners {
  bool isQuiet = false;
  bool asJson = false;
  bool showsProgress = false;
  bool isDryRun = false;
  ReportOptions report;  // of a dry run

  [[nodiscard]] bool PrintsText() const { return !asJson && !isQuiet; }
};

void AddManners(CLI::App& build, BuildOptions& options, BuildManners& manners) {
  build.add_option("--jobs", options.payload.jobs, "Threads at a time; default: one for each core")
      ->check(CLI::Range(1, 256));
  CLI::Option* const quiet = build.add_flag("--quiet", manners.isQuiet, "Print only warnings");
  build.add_flag("--json", manners.asJson, "Print the figures as one JSON object");
  build.add_flag("--progress", manners.showsProgress, "Show the progress even without a terminal")
      ->excludes(quiet);
  CLI::Option* const dryRun =
      build.add_flag("--dry-run", manners.isDryRun,
                     "Write nothing: tell what players of the earlier publication would download, "
                     "delete and wait for");
  for (CLI::Option* const option : AddReportOptions(build, manners.report)) option->needs(dryRun);
}

void AddOptions(CLI::App& build, BuildOptions& options) {
  AddPath(build, "TREE", options.tree, "The folder with the game's files")
      ->required()
      ->check(ExistingFolder());
  AddPath(build, "OUT", options.output, "The folder that the web server offers")->required();
  AddCompressionOptions(build, options.payload);
  AddChoice<HashKind>(build, "--hash", options.payload.hash,
                      {{"sha1", HashKind::kSha1}, {"md5", HashKind::kMd5}},
                      "The digest of the list; default: sha1");
  build
      .add_option("--exe", options.clientExe,
                  "The game client: \\Game.exe in TREE, or Game.exe in the folder above")
      ->type_name("NAME");
  build
      .add_option("--data", options.dataPath,
                  "The path with which each request begins, as Data in the settings")
      ->type_name("PATH");
  AddNamesOption(build, options.names);
  build.add_option("--list", options.listName, "File name of the reference list")
      ->type_name("NAME")
      ->capture_default_str();
  build
      .add_option_function<Texts>(
          "--remove", [&](const Texts& paths) { AddRemovals(options.removals, paths, ""); },
          "A file or directory to remove from players' disks; repeatable")
      ->type_name("PATH")
      ->allow_extra_args(false);
  build
      .add_option_function<Texts>(
          "--remove-pattern",
          [&](const Texts& patterns) { AddRemovals(options.removals, patterns, kPatternMode); },
          "A pattern, such as \"*.tmp\": removes all files whose path matches; repeatable")
      ->type_name("PATTERN")
      ->allow_extra_args(false);
  AddPath(build, "--remove-from", options.removeFrom,
          "An earlier list, or its publication's folder: files that are gone since then "
          "are removed from players' disks");
  AddPath(build, "--reuse", options.reuse,
          "Another publication's folder: payloads of unchanged files are taken from it, by "
          "hard link or else by copy, and so is its enable.cdn")
      ->check(ExistingFolder());
  CLI::Option* const cdn =
      build
          .add_option("--cdn", options.redirection,
                      "Redirect players to this URL, http://host/path: writes OUT/enable.cdn")
          ->type_name("URL");
  build
      .add_flag_callback(
          "--no-cdn", [&options] { options.takesRedirection = false; },
          "Don't take over the enable.cdn of --reuse; one in OUT stays")
      ->excludes(cdn);
  build
      .add_option("--max-removed", options.maxRemovedPercent,
                  "Percent of the earlier publication's files, and bytes, that TREE may lack")
      ->check(CLI::Range(0U, 100U))
      ->capture_default_str();
  AddAcceptOption(build, options.accepted);
  build.add_flag("--allow-empty", options.allowEmpty, "Publish a TREE without a file");
  AddPath(
      build, "--ignore", options.ignoreFile,
      "A file with rules for what isn't published, like .gitignore; default: TREE/.publishignore");
}

// Anything else that the linter finds in a build can only be put right.
void RequireAcceptable(const std::vector<Rule>& rules) {
  for (const Rule rule : rules) {
    if (IsAboutStart(rule)) continue;
    throw CLI::ValidationError("--accept",
                               "rule " + std::to_string(static_cast<int>(rule)) +
                                   " can't be accepted in a build, only those from 700 on");
  }
}

void PrintReused(const BuildOptions& options, const BuildSummary& summary) {
  const std::string name = ShownPath(options.reuse);
  if (summary.canReuse) {
    std::printf("%zu payloads reused from %s\n", summary.reused, name.c_str());
  } else {
    std::printf(
        "no payload reused from %s: it was made with other settings, or its list was changed\n",
        name.c_str());
  }
}

void PrintText(const BuildOptions& options, const BuildSummary& summary, double seconds) {
  const Changes& changes = summary.changes;
  const bool leavesFiles = changes.removed > 0 && !summary.removesWhatIsGone;
  std::printf("%zu added, %zu changed, %zu %s\n", changes.added, changes.changed, changes.removed,
              leavesFiles ? "gone from the list, but players keep them: with --remove-from they "
                            "are removed"
                          : "removed");
  std::printf("%zu files, %llu bytes; to download: %llu bytes, %zu files compressed; %.1f s\n",
              summary.files, static_cast<unsigned long long>(summary.contentBytes),
              static_cast<unsigned long long>(summary.transferBytes), summary.compressed, seconds);
  if (!options.reuse.empty()) PrintReused(options, summary);
  if (summary.accepted > 0) std::printf("findings accepted: %zu\n", summary.accepted);
}

nlohmann::ordered_json JsonOf(const BuildSummary& summary, double seconds) {
  return {{"files", summary.files},
          {"added", summary.changes.added},
          {"changed", summary.changes.changed},
          {"removed", summary.removesWhatIsGone ? summary.changes.removed : 0},
          {"kept", summary.removesWhatIsGone ? 0 : summary.changes.removed},
          {"bytes", summary.contentBytes},
          {"transferBytes", summary.transferBytes},
          {"compressed", summary.compressed},
          {"reused", summary.reused},
          {"warnings", summary.warnings},
          {"accepted", summary.accepted},
          {"seconds", seconds}};
}

void PrintWarnings(const BuildSummary& summary) {
  for (const std::string& warning : summary.warnings) {
    std::fprintf(stderr, "velmora-publish: warning: %s\n", warning.c_str());
  }
}

// Calls `work` with the options, and shows the progress of what it does.
template <typename Work>
auto WithProgress(BuildOptions options, const BuildManners& manners, Work work) {
  Progress progress;
  options.payload.progress = &progress;
  const bool isShown = manners.showsProgress || platform::IsErrorStreamATerminal();
  const ProgressLine line(progress, isShown && !manners.isQuiet);
  return work(options);
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Build(const BuildOptions& options, const BuildManners& manners) {
  const auto start = std::chrono::steady_clock::now();
  const Leftover leftover = RecoverPublication(options.output);
  if (manners.PrintsText()) PrintLeftover(leftover);
  const BuildSummary summary = WithProgress(options, manners, BuildPublication);
  if (manners.asJson) {
    auto json = JsonOf(summary, SecondsSince(start));
    json["leftover"] = LeftoverName(leftover);
    std::printf("%s\n", json.dump(2).c_str());
    return;
  }
  PrintWarnings(summary);
  if (manners.PrintsText()) PrintText(options, summary, SecondsSince(start));
}

// Returns false if players of the earlier publication couldn't update.
bool DryRun(const BuildOptions& options, const BuildManners& manners) {
  const auto start = std::chrono::steady_clock::now();
  const Preview preview = WithProgress(options, manners, PreviewPublication);
  const PublishedList none("");
  const UpdateReport report = ReportOn(preview.earlier ? *preview.earlier : none, preview.list);
  if (manners.asJson) {
    auto json = JsonOf(preview.summary, SecondsSince(start));
    json["players"] = JsonOf(report, manners.report);
    std::printf("%s\n", json.dump(2).c_str());
    return report.CanUpdate();
  }
  PrintWarnings(preview.summary);
  if (manners.PrintsText()) {
    PrintText(options, preview.summary, SecondsSince(start));
    std::printf("Nothing was written. For players %s:\n",
                preview.earlier ? "of the earlier publication" : "who have no file yet");
    PrintReport(report, manners.report);
  }
  return report.CanUpdate();
}

}  // namespace

void AddBuildCommand(CLI::App& app, int& status) {
  CLI::App* build = app.add_subcommand("build", "Builds a publication from a folder of files");
  const auto options = std::make_shared<BuildOptions>();
  const auto manners = std::make_shared<BuildManners>();
  options->payload.stop = &stopAsked;
  AddOptions(*build, *options);
  AddManners(*build, *options, *manners);
  Describe(*build,
           "0 published, 1 not published: the publication before stands; with --dry-run, 0 would "
           "be published, 1 would not, or players couldn't update",
           "build game /srv/velmora/publication --exe '\\Game.exe' --remove-from "
           "/srv/velmora/publication");
  build->callback([options, manners, &status] {
    RequireAcceptable(options->accepted);
    bool isDone = true;
    if (manners->isDryRun) {
      isDone = DryRun(*options, *manners);
    } else {
      Build(*options, *manners);
    }
    status = isDone ? kDone : kFailed;
  });
}

}  // namespace velmora::publish
