// What players of an earlier publication have to do for a new one, for the publisher's terminal and
// for pipelines.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "publish/common/published_list.h"
#include "publish/diff/list_diff.h"

namespace velmora::publish {

struct ReportOptions {
  std::vector<double> rates = {10, 50, 100};  // Mbit/s
  double latency = 30;                        // in ms, for each request
  bool files = false;                         // all of them, one by one
};

// The options --rate, --latency and --files, in this order.
[[nodiscard]] std::vector<CLI::Option*> AddReportOptions(CLI::App& command, ReportOptions& options);

struct UpdateReport {
  ListDiff diff;
  std::uint64_t bytes;  // including the list, as often as it is fetched

  // Whether nothing is in the way of players' updates.
  [[nodiscard]] bool CanUpdate() const { return diff.inTheWay.empty(); }
};

[[nodiscard]] UpdateReport ReportOn(const PublishedList& before, std::string_view newList);

void PrintReport(const UpdateReport& report, const ReportOptions& options);

[[nodiscard]] nlohmann::ordered_json JsonOf(const UpdateReport& report,
                                            const ReportOptions& options);

}  // namespace velmora::publish
