#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "publish/commands.h"
#include "publish/publication.h"

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

void AddOptions(CLI::App& build, BuildOptions& options) {
  build.add_option("TREE", options.tree, "The game as players shall have it")
      ->required()
      ->check(CLI::ExistingDirectory);
  build.add_option("OUT", options.output, "The folder that the web server offers")->required();
  build.add_flag("--compress", options.payload.compress, "Compress each file that gets smaller");
  build.add_option("--hash", options.payload.hash, "sha1 (default) or md5")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, HashKind>{{"sha1", HashKind::kSha1}, {"md5", HashKind::kMd5}}));
  build.add_option("--exe", options.clientExe, "Name of the game client");
  build.add_option("--list", options.listName, "File name of the reference list")
      ->capture_default_str();
  build
      .add_option_function<Texts>(
          "--remove", [&](const Texts& paths) { AddRemovals(options.removals, paths, ""); },
          "A file or directory that players shall lose; can be given again")
      ->allow_extra_args(false);
  build
      .add_option_function<Texts>(
          "--remove-pattern",
          [&](const Texts& patterns) { AddRemovals(options.removals, patterns, "R"); },
          "The same for all files whose path matches, as in \"*.tmp\"")
      ->allow_extra_args(false);
}

void Build(const BuildOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  const BuildSummary summary = BuildPublication(options);
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  std::printf("%zu files, %llu bytes; to download: %llu bytes, %zu files compressed; %.1f s\n",
              summary.files, static_cast<unsigned long long>(summary.contentBytes),
              static_cast<unsigned long long>(summary.transferBytes), summary.compressed,
              time.count());
}

}  // namespace

void AddBuildCommand(CLI::App& app, int& status) {
  CLI::App* build = app.add_subcommand("build", "Makes a publication of a tree of files");
  const auto options = std::make_shared<BuildOptions>();
  options->payload.stop = &stopAsked;
  AddOptions(*build, *options);
  build->callback([options, &status] {
    Build(*options);
    status = kDone;
  });
}

}  // namespace velmora::publish
