// The linter's checks, grouped by what they look at. Each adds what it finds. Pure, apart from
// CheckStartFiles.
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
  // About another file than the list.
  void AddOf(const std::filesystem::path& file, Rule rule, std::size_t line,
             std::string_view subject, std::string detail = {}) {
    Add(rule, line, subject, std::move(detail));
    found_.back().file = file;
  }
  // Those of the list first, each file's by line; the findings of one line keep the order in which
  // they were added.
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

// A list's last EXE line, or none.
struct ListedClient {
  std::size_t line = 0;
  std::string name;  // empty: none, so that patchers keep the name they know
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
void CheckPath(const ListedRecord& listed, std::string_view listedPath, const std::string& dataPath,
               Findings& findings);
void CheckRemovalPath(const ListedRecord& removal, Findings& findings);

// What only shows when records are compared with each other.
void CheckFilesTogether(const ListedRecords& records, Findings& findings);
void CheckRemovals(const ListedRecords& records, Findings& findings);
// `tree` has the files of the tree; null if no tree is known.
void CheckClients(const ListedRecords& records, const std::vector<TreeFile>* tree,
                  Findings& findings);
void CheckOrder(std::string_view text, const ListedRecords& records, Findings& findings);

// The files of the tree that the list neither brings back nor names in a removal, but that patterns
// and removals of folders delete.
void CheckTree(const std::vector<TreeFile>& tree, const ListedRecords& records, Findings& findings);

// The patcher and the settings among these files.
void CheckStartFiles(const std::vector<TreeFile>& files, const LintOptions& options,
                     Findings& findings);

// Whether players find the client among what a list and a tree bring them. `isWhole`: nothing else
// brings it.
void CheckClient(const ListedClient& client, const std::vector<std::string>& listPaths,
                 bool isWhole, Findings& findings);

}  // namespace velmora::publish
