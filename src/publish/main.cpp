// velmora-publish: makes what patchers read.
#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <map>
#include <string>
#include <vector>

#include "publish/publication.h"

namespace {

using velmora::publish::BuildOptions;
using velmora::publish::BuildSummary;
using velmora::publish::HashKind;

void AddBuild(CLI::App& app, BuildOptions& options) {
  CLI::App* build = app.add_subcommand("build", "Makes a publication of a tree of files");
  build->add_option("TREE", options.tree, "The game as players shall have it")
      ->required()
      ->check(CLI::ExistingDirectory);
  build->add_option("OUT", options.output, "The folder that the web server offers")->required();
  build->add_flag("--compress", options.payload.compress, "Compress each file that gets smaller");
  build->add_option("--hash", options.payload.hash, "sha1 (default) or md5")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, HashKind>{{"sha1", HashKind::kSha1}, {"md5", HashKind::kMd5}}));
  build->add_option("--exe", options.clientExe, "Name of the game client");
  build->add_option("--list", options.listName, "File name of the reference list")
      ->capture_default_str();
  build
      ->add_option_function<std::vector<std::string>>(
          "--remove",
          [&options](const std::vector<std::string>& paths) {
            for (const std::string& path : paths) {
              options.removals.emplace_back().path = path;
            }
          },
          "A file or directory that players shall lose; can be given again")
      ->allow_extra_args(false);
  build
      ->add_option_function<std::vector<std::string>>(
          "--remove-pattern",
          [&options](const std::vector<std::string>& patterns) {
            for (const std::string& pattern : patterns) {
              velmora::FileRecord& removal = options.removals.emplace_back();
              removal.path = pattern;
              removal.transferHash = "R";
            }
          },
          "The same for all files whose path matches, as in \"*.tmp\"")
      ->allow_extra_args(false);
}

// Ctrl-C and a pipeline's end: the work stops between two pieces, and cleans up behind itself.
std::atomic<bool> stopAsked = false;
static_assert(std::atomic<bool>::is_always_lock_free);

void StopOnSignals() {
  for (const int number : {SIGINT, SIGTERM}) {
    std::signal(number, [](int) { stopAsked = true; });
  }
}

int Build(const BuildOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  try {
    const BuildSummary summary = BuildPublication(options);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    std::printf("%zu files, %llu bytes; to download: %llu bytes, %zu files compressed; %.1f s\n",
                summary.files, static_cast<unsigned long long>(summary.contentBytes),
                static_cast<unsigned long long>(summary.transferBytes), summary.compressed,
                time.count());
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velmora-publish: %s\n", error.what());
    return 1;
  }
}

}  // namespace

int main(int count, char** arguments) {
  CLI::App app("Makes what the patcher Velmora Update reads");
  app.require_subcommand(1);
  BuildOptions options;
  options.payload.stop = &stopAsked;
  AddBuild(app, options);
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  StopOnSignals();
  return Build(options);
}
