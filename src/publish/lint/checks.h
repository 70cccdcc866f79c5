// The linter's checks, grouped by what they look at. Each adds what it finds. Pure, apart from
// CheckTree.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "engine/file_record.h"
#include "engine/reference_list.h"
#include "publish/common/removal_index.h"
#include "publish/lint/lint.h"

namespace velmora::publish {

// A record with the line that it came from.
struct ListedRecord {
  std::size_t line;
  FileRecord record;
  std::string folded;  // its path, as FoldedPath returns it
};

class Findings {
 public:
  void Add(Rule rule, std::size_t line, std::string_view subject, std::string detail = {}) {
    found_.push_back({&LintRuleOf(rule), line, std::string(subject), std::move(detail)});
  }
  void Add(Rule rule, const ListedRecord& listed, std::string detail = {}) {
    Add(rule, listed.line, listed.record.path, std::move(detail));
  }
  // By line; the findings of one line keep the order in which they were added.
  [[nodiscard]] std::vector<LintFinding> Sorted() &&;

 private:
  std::vector<LintFinding> found_;
};

// The records that patchers read from a list, in the order of the lines.
struct ListedRecords {
  std::vector<ListedRecord> files;
  std::vector<ListedRecord> removals;
  RemovalIndex removalIndex;
  std::vector<ListedRecord> clients;  // the path is the client's name
};

// What patchers make of a line. The fields of a broken record aren't the intended ones.
enum class LineUse { kNone, kRecord, kBrokenRecord };

// Where the reading ends, if that is before the end of the list. `unread` is the part of `text`
// that patchers don't read.
void CheckEnd(std::string_view text, std::string_view unread, Findings& findings);

// The form of one line: its keyword, its fields, and any text around them.
[[nodiscard]] LineUse CheckLine(std::string_view line, const ListLine& scanned, std::size_t number,
                                Findings& findings);

void CheckHashesAndSizes(const ListedRecord& listed, Findings& findings);
void CheckPath(const ListedRecord& listed, std::string_view listedPath, const LintOptions& options,
               Findings& findings);
void CheckRemovalPath(const ListedRecord& removal, Findings& findings);

// What only shows when records are compared with each other.
void CheckFilesTogether(const ListedRecords& records, Findings& findings);
void CheckRemovals(const ListedRecords& records, Findings& findings);
void CheckClients(const ListedRecords& records, Findings& findings);
void CheckOrder(std::string_view text, const ListedRecords& records, Findings& findings);

// The files of the tree that the list neither brings back nor names in a removal, but that patterns
// and removals of folders delete.
void CheckTree(const std::filesystem::path& tree, NameEncoding encoding,
               const ListedRecords& records, Findings& findings);

}  // namespace velmora::publish
