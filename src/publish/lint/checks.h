// The checks of a linter, by what they look at. Each adds what it finds. Pure but for CheckTree.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "engine/file_record.h"
#include "engine/reference_list.h"
#include "publish/common/removal_reach.h"
#include "publish/lint/lint.h"

namespace velmora::publish {

class Findings {
 public:
  void Add(int rule, std::size_t line, std::string_view subject, std::string detail = {}) {
    found_.push_back({&LintRuleOf(rule), line, std::string(subject), std::move(detail)});
  }
  // In the order of lines, and of their finding within one.
  [[nodiscard]] std::vector<LintFinding> Sorted() &&;

 private:
  std::vector<LintFinding> found_;
};

// A record with the line it came from.
struct ListedRecord {
  std::size_t line;
  FileRecord record;
  std::string folded;  // its path, as PlayersPath gives it
};

// What patchers read of a list, line by line.
struct ListedRecords {
  std::vector<ListedRecord> files;
  std::vector<ListedRecord> removals;
  RemovalReach reach;                 // of the removals
  std::vector<ListedRecord> clients;  // the path is the client's name
};

// What patchers make of a line. The fields of a broken record aren't those that were meant.
enum class LineUse { kNone, kRecord, kBrokenRecord };

// The shape of one line: keyword, fields, what stands around them.
[[nodiscard]] LineUse CheckLine(std::string_view line, const ListLine& scanned, std::size_t number,
                                Findings& findings);

void CheckHashesAndSizes(const ListedRecord& listed, Findings& findings);
void CheckPath(const ListedRecord& listed, std::string_view listedPath, const LintOptions& options,
               Findings& findings);
void CheckRemovalPath(const ListedRecord& removal, Findings& findings);

// What only shows when records are held beside each other.
void CheckFilesTogether(const ListedRecords& records, Findings& findings);
void CheckRemovals(const ListedRecords& records, Findings& findings);
void CheckClients(const ListedRecords& records, Findings& findings);
void CheckOrder(std::string_view text, const ListedRecords& records, Findings& findings);

// Which files of the tree the removals take that the list doesn't bring back.
void CheckTree(const std::filesystem::path& tree, const ListedRecords& records, Findings& findings);

}  // namespace velmora::publish
