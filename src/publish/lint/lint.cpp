#include "publish/lint/lint.h"

#include <algorithm>

#include "publish/common/list_path.h"
#include "publish/lint/checks.h"

namespace velmora::publish {
namespace {

void AddRecord(std::vector<ListedRecord>& records, std::size_t line, FileRecord record) {
  std::string folded = PlayersPath(record.path);
  records.push_back({line, std::move(record), std::move(folded)});
}

void TakeLine(std::string_view line, std::size_t number, const LintOptions& options,
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
    records.reach.Add(records.removals.back().record);
    CheckRemovalPath(records.removals.back(), findings);
  } else {
    AddRecord(records.clients, number, RemoveRecord(scanned));
  }
}

// Goes as far as patchers read.
void TakeLines(std::string_view text, const LintOptions& options, ListedRecords& records,
               Findings& findings) {
  std::size_t number = 0;
  while (!text.empty()) {
    ++number;
    const std::string_view line = text.substr(0, text.find('\n'));
    const std::size_t nul = line.find('\0');
    if (nul != std::string_view::npos) findings.Add(102, number, line.substr(0, nul));
    if (nul == std::string_view::npos && line.size() > kMaxListLine) {
      findings.Add(101, number, line.substr(0, 40), std::to_string(line.size()) + " bytes");
    }
    const bool readsOn = nul == std::string_view::npos && line.size() <= kMaxListLine;
    if (nul != std::string_view::npos || readsOn) {
      TakeLine(line.substr(0, nul), number, options, records, findings);
    }
    if (!readsOn) return;
    text.remove_prefix(std::min(line.size() + 1, text.size()));
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
  TakeLines(text, options, records, findings);
  CheckFilesTogether(records, findings);
  CheckRemovals(records, findings);
  CheckClients(records, findings);
  CheckOrder(text, records, findings);
  if (options.tree) CheckTree(*options.tree, records, findings);
  return std::move(findings).Sorted();
}

}  // namespace velmora::publish
