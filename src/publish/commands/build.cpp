#include <chrono>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "publish/build/publication.h"
#include "publish/build/removals.h"
#include "publish/build/staging.h"
#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"
#include "publish/common/disk_text.h"
#include "publish/common/list_path.h"

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
      ->delimiter(',')
      ->allow_extra_args(false);
}

void AddOptions(CLI::App& build, BuildOptions& options) {
  build.add_option("TREE", options.tree, "The folder with the game's files")
      ->required()
      ->check(CLI::ExistingDirectory);
  build.add_option("OUT", options.output, "The folder that the web server offers")->required();
  AddCompressionOptions(build, options.payload);
  AddChoice<HashKind>(build, "--hash", options.payload.hash,
                      {{"sha1", HashKind::kSha1}, {"md5", HashKind::kMd5}},
                      "The digest of the list; default: sha1");
  build.add_option("--exe", options.clientExe, "Name of the game client");
  AddNamesOption(build, options.names);
  build.add_option("--list", options.listName, "File name of the reference list")
      ->capture_default_str();
  build
      .add_option_function<Texts>(
          "--remove", [&](const Texts& paths) { AddRemovals(options.removals, paths, ""); },
          "A file or directory to remove from players' disks; repeatable")
      ->allow_extra_args(false);
  build
      .add_option_function<Texts>(
          "--remove-pattern",
          [&](const Texts& patterns) { AddRemovals(options.removals, patterns, kPatternMode); },
          "A pattern, such as \"*.tmp\": removes all files whose path matches; repeatable")
      ->allow_extra_args(false);
  build.add_option("--remove-from", options.removeFrom,
                   "An earlier list, or its publication's folder: files that are gone since then "
                   "are removed from players' disks");
  build
      .add_option("--reuse", options.reuse,
                  "Another publication's folder: payloads of unchanged files are taken from it, by "
                  "hard link or else by copy, and so is its enable.cdn")
      ->check(CLI::ExistingDirectory);
  CLI::Option* const cdn =
      build.add_option("--cdn", options.redirection,
                       "Redirect players to this URL, http://host/path: writes OUT/enable.cdn");
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
  build.add_flag("--allow-empty", options.allowEmpty, "Publish a TREE without a file");
  build.add_option(
      "--ignore", options.ignoreFile,
      "A file with rules for what isn't published, like .gitignore; default: TREE/.publishignore");
}

void PrintReused(const BuildOptions& options, const BuildSummary& summary) {
  const std::string name = ShownPath(options.reuse.native());
  if (summary.canReuse) {
    std::printf("%zu payloads reused from %s\n", summary.reused, name.c_str());
  } else {
    std::printf(
        "no payload reused from %s: it was made with other settings, or its list was changed\n",
        name.c_str());
  }
}

void Build(const BuildOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  PrintLeftover(RecoverPublication(options.output));
  const BuildSummary summary = BuildPublication(options);
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  std::printf("%zu added, %zu changed, %zu removed\n", summary.changes.added,
              summary.changes.changed, summary.changes.removed);
  std::printf("%zu files, %llu bytes; to download: %llu bytes, %zu files compressed; %.1f s\n",
              summary.files, static_cast<unsigned long long>(summary.contentBytes),
              static_cast<unsigned long long>(summary.transferBytes), summary.compressed,
              time.count());
  if (!options.reuse.empty()) PrintReused(options, summary);
}

}  // namespace

void AddBuildCommand(CLI::App& app, int& status) {
  CLI::App* build = app.add_subcommand("build", "Builds a publication from a folder of files");
  const auto options = std::make_shared<BuildOptions>();
  options->payload.stop = &stopAsked;
  AddOptions(*build, *options);
  Describe(*build, "0 published, 1 not published: the publication before stands",
           "build game /srv/velmora/publication --exe '\\Game.exe' --remove-from "
           "/srv/velmora/publication");
  build->callback([options, &status] {
    Build(*options);
    status = kDone;
  });
}

}  // namespace velmora::publish
