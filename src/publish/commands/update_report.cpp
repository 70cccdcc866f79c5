#include "publish/commands/update_report.h"

#include <cstdio>

#include "publish/common/shown_text.h"

namespace velmora::publish {
namespace {

using Json = nlohmann::ordered_json;
using Entries = std::vector<DiffEntry>;

// Patchers make one request after another, so no wait overlaps with a transfer.
double Seconds(const UpdateReport& report, const ReportOptions& options, double rate) {
  return static_cast<double>(report.bytes) * 8 / (rate * 1e6) +
         static_cast<double>(report.diff.Requests()) * options.latency / 1e3;
}

void PrintEntries(const char* what, const Entries& entries) {
  for (const DiffEntry& entry : entries) {
    std::printf("%-8s %12llu  %s\n", what, static_cast<unsigned long long>(entry.bytes),
                ShownText(entry.path).c_str());
  }
}

Json JsonOf(const Entries& entries) {
  Json list = Json::array();
  for (const DiffEntry& entry : entries) {
    list.push_back({{"path", ShownText(entry.path)}, {"bytes", entry.bytes}});
  }
  return list;
}

}  // namespace

std::vector<CLI::Option*> AddReportOptions(CLI::App& command, ReportOptions& options) {
  CLI::Option* const rate =
      command
          .add_option("--rate", options.rates,
                      "Players' bandwidth in Mbit/s; separate several by commas")
          ->delimiter(',')
          ->check(CLI::PositiveNumber)
          ->capture_default_str();
  CLI::Option* const latency =
      command.add_option("--latency", options.latency, "Additional milliseconds for each request")
          ->check(CLI::NonNegativeNumber)
          ->capture_default_str();
  return {rate, latency, command.add_flag("--files", options.files, "List all files")};
}

UpdateReport ReportOn(const PublishedList& before, std::string_view newList) {
  UpdateReport report{CompareLists(before, PublishedList(newList)), 0};
  report.bytes = report.diff.DownloadBytes() + newList.size() * (1 + report.diff.restarts);
  return report;
}

void PrintReport(const UpdateReport& report, const ReportOptions& options) {
  const ListDiff& diff = report.diff;
  if (options.files) {
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
              static_cast<unsigned long long>(report.bytes));
  for (const double rate : options.rates) {
    std::printf("at %g Mbit/s and %g ms a request: %.1f s\n", rate, options.latency,
                Seconds(report, options, rate));
  }
}

nlohmann::ordered_json JsonOf(const UpdateReport& report, const ReportOptions& options) {
  const ListDiff& diff = report.diff;
  Json json = {{"download", JsonOf(diff.downloads)},
               {"delete", JsonOf(diff.deletions)},
               {"check", JsonOf(diff.checks)},
               {"checkAtEachStart", JsonOf(diff.uncached)},
               {"left", JsonOf(diff.leftBehind)},
               {"blocked", JsonOf(diff.inTheWay)},
               {"uncertain", diff.uncertain},
               {"restarts", diff.restarts},
               {"requests", diff.Requests()},
               {"bytes", report.bytes},
               {"times", Json::array()}};
  for (const double rate : options.rates) {
    json["times"].push_back({{"mbitPerSecond", rate},
                             {"millisecondsPerRequest", options.latency},
                             {"seconds", Seconds(report, options, rate)}});
  }
  return json;
}

}  // namespace velmora::publish
