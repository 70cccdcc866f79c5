#include "publish/lint/lint.h"

#include <algorithm>

#include "publish/common/list_path.h"
#include "publish/lint/checks.h"

namespace velmora::publish {
namespace {

void AddRecord(std::vector<ListedRecord>& records, std::size_t line, FileRecord record) {
  std::string folded = FoldedPath(record.path);
  records.push_back({line, std::move(record), std::move(folded)});
}

void ReadLine(std::string_view line, std::size_t number, const LintOptions& options,
              ListedRecords& records, Findings& findings) {
  const ListLine scanned = ScanListLine(line);
  const LineUse use = CheckLine(line, scanned, number, findings);
  if (use == LineUse::kNone) return;
  if (scanned.keyword == "FILE") {
    AddRecord(records.files, number, UpdateRecord(scanned));
    if (use == LineUse::kRecord) CheckHashesAndSizes(records.files.back(), findings);
    CheckPath(records.files.back(), scanned.fields[0], options, findings);
  } else if (scanned.keyword == "DEL") {
    AddRecord(records.removals, number, RemoveRecord(scanned));
    records.removalIndex.Add(records.removals.back().record);
    CheckRemovalPath(records.removals.back(), findings);
  } else {
    AddRecord(records.clients, number, RemoveRecord(scanned));
  }
}

void ReadLines(std::string_view text, const LintOptions& options, ListedRecords& records,
               Findings& findings) {
  std::vector<std::string_view> lines;
  const std::string_view unread =
      ForEachListLine(text, [&lines](std::string_view line) { lines.push_back(line); });
  CheckEnd(text, unread, findings);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    ReadLine(lines[i], i + 1, options, records, findings);
  }
}

}  // namespace

std::vector<LintFinding> Findings::Sorted() && {
  std::stable_sort(found_.begin(), found_.end(),
                   [](const LintFinding& a, const LintFinding& b) { return a.line < b.line; });
  return std::move(found_);
}

std::vector<LintFinding> LintList(std::string_view text, const LintOptions& options) {
  Findings findings;
  ListedRecords records;
  ReadLines(text, options, records, findings);
  CheckFilesTogether(records, findings);
  CheckRemovals(records, findings);
  CheckClients(records, findings);
  CheckOrder(text, records, findings);
  if (options.tree) CheckTree(*options.tree, options.treeNames, records, findings);
  return std::move(findings).Sorted();
}

std::vector<LintFinding> LintFiles(std::string_view text) {
  Findings findings;
  ListedRecords records;
  ReadLines(text, {}, records, findings);
  CheckFilesTogether(records, findings);
  return std::move(findings).Sorted();
}

}  // namespace velmora::publish
