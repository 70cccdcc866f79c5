#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/common/shown_text.h"
#include "publish/diff/list_diff.h"

namespace velmora::publish {
namespace {

struct DiffCommand {
  std::string before;
  std::string after;
  std::string listName = "hashlist.dat";
  std::vector<double> rates = {10, 50, 100};  // Mbit/s
  double latency = 30;                        // in ms, for each request
  bool json = false;
  bool files = false;
};

using Json = nlohmann::ordered_json;
using Entries = std::vector<DiffEntry>;

struct Costs {
  ListDiff diff;
  std::uint64_t bytes;  // including the list, as often as it is fetched
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

Costs CostsOf(const DiffCommand& command) {
  const std::string newText = ReadList(command, command.after);
  const PublishedList before(ReadList(command, command.before));
  const PublishedList after(newText);
  RequireReadable(before, command.before);
  RequireReadable(after, command.after);
  Costs costs{CompareLists(before, after), 0};
  costs.bytes = costs.diff.DownloadBytes() + newText.size() * (1 + costs.diff.restarts);
  return costs;
}

// Patchers make one request after another, so no wait overlaps with a transfer.
double Seconds(const DiffCommand& command, const Costs& costs, double rate) {
  return static_cast<double>(costs.bytes) * 8 / (rate * 1e6) +
         static_cast<double>(costs.diff.Requests()) * command.latency / 1e3;
}

void PrintEntries(const char* what, const Entries& entries) {
  for (const DiffEntry& entry : entries) {
    std::printf("%-8s %12llu  %s\n", what, static_cast<unsigned long long>(entry.bytes),
                ShownText(entry.path).c_str());
  }
}

void PrintText(const DiffCommand& command, const Costs& costs) {
  const ListDiff& diff = costs.diff;
  if (command.files) {
    PrintEntries("delete", diff.deletions);
    PrintEntries("download", diff.downloads);
    PrintEntries("check", diff.checks);
    PrintEntries("always", diff.uncached);
    PrintEntries("leave", diff.leftBehind);
  }
  PrintEntries("BLOCKED", diff.inTheWay);
  if (!diff.inTheWay.empty()) {
    std::printf(
        "A file is in the way of a folder, or a folder of a file: players' updates will fail. "
        "build --remove-from removes it: \"DEL : FILE, R\", or \"DEL : FOLDER\\\".\n");
  }
  std::printf("to download:  %zu files, %llu bytes\n", diff.downloads.size(),
              static_cast<unsigned long long>(diff.DownloadBytes()));
  std::printf("to delete:    %zu files\n", diff.deletions.size());
  std::printf("to check:     %zu files, read and hashed once\n", diff.checks.size());
  if (diff.uncertain > 0) {
    std::printf(
        "              (%zu of them by another digest: equal in size is all that is known)\n",
        diff.uncertain);
  }
  if (!diff.uncached.empty()) {
    std::printf(
        "at each start: %zu files, %llu bytes, read and hashed: the cache can't hold their paths "
        "(see velmora-publish lint, rules 302 and 303)\n",
        diff.uncached.size(), static_cast<unsigned long long>(diff.UncachedBytes()));
  }
  if (!diff.leftBehind.empty()) {
    std::printf("left behind:  %zu files, neither listed nor deleted\n", diff.leftBehind.size());
  }
  std::printf("restarts:     %zu\n", diff.restarts);
  std::printf("requests:     %zu, %llu bytes with the list\n", diff.Requests(),
              static_cast<unsigned long long>(costs.bytes));
  for (const double rate : command.rates) {
    std::printf("at %g Mbit/s and %g ms a request: %.1f s\n", rate, command.latency,
                Seconds(command, costs, rate));
  }
}

Json JsonOf(const Entries& entries) {
  Json list = Json::array();
  for (const DiffEntry& entry : entries) {
    list.push_back({{"path", ShownText(entry.path)}, {"bytes", entry.bytes}});
  }
  return list;
}

void PrintJson(const DiffCommand& command, const Costs& costs) {
  const ListDiff& diff = costs.diff;
  Json report = {{"download", JsonOf(diff.downloads)},
                 {"delete", JsonOf(diff.deletions)},
                 {"check", JsonOf(diff.checks)},
                 {"checkAtEachStart", JsonOf(diff.uncached)},
                 {"left", JsonOf(diff.leftBehind)},
                 {"blocked", JsonOf(diff.inTheWay)},
                 {"uncertain", diff.uncertain},
                 {"restarts", diff.restarts},
                 {"requests", diff.Requests()},
                 {"bytes", costs.bytes},
                 {"times", Json::array()}};
  for (const double rate : command.rates) {
    report["times"].push_back({{"mbitPerSecond", rate},
                               {"millisecondsPerRequest", command.latency},
                               {"seconds", Seconds(command, costs, rate)}});
  }
  std::printf("%s\n", report.dump(2).c_str());
}

// Returns false if players can't update from the old list to the new one.
bool Diff(const DiffCommand& command) {
  const Costs costs = CostsOf(command);
  if (command.json) {
    PrintJson(command, costs);
  } else {
    PrintText(command, costs);
  }
  return costs.diff.inTheWay.empty();
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
  diff->add_option("--rate", command->rates,
                   "Players' bandwidth in Mbit/s; separate several by commas")
      ->delimiter(',')
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  diff->add_option("--latency", command->latency, "Additional milliseconds for each request")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  diff->add_flag("--files", command->files, "List all files");
  diff->add_flag("--json", command->json, "Print everything as JSON");
  Describe(*diff, "0 players can update, 1 they can't, or the lists can't be compared",
           "diff publication-41 publication-42 --rate 10,100 --latency 30");
  diff->callback([command, &status] { status = Diff(*command) ? kDone : kFailed; });
}

}  // namespace velmora::publish
