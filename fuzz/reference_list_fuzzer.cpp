// Any bytes as a reference list: what enters the sets, in which order, and that it can be printed
// and read again.
#include <set>

#include "engine/reference_list.h"
#include "harness.h"

namespace velmora::fuzz {
namespace {

using Records = std::vector<FileRecord>;

struct Before {
  bool operator()(const FileRecord& a, const FileRecord& b) const { return FileRecordBefore(a, b); }
};

// The library's tree looks for the place of a record by the same comparisons and keeps its balance
// by the same rules, so that it gives the same walk even where the ordering is none. That is so of
// this library and this use alone; the program can't rely on it.
using LibrarySet = std::set<FileRecord, Before>;

std::string Shown(const FileRecord& record) {
  std::string text = record.path;
  for (const std::string& field :
       {record.transferHash, record.transferSize, record.contentHash, record.contentSize}) {
    text += '|' + field;
  }
  return text + (record.compressed ? "|compressed" : "");
}

std::string Shown(const Records& records) {
  std::string text;
  for (const FileRecord& record : records) text += Shown(record) + '\n';
  return text;
}

struct Lists {
  void Add(std::string_view text) {
    ParseReferenceList(text, files, removals, client,
                       [this](std::string_view line) { refused.emplace_back(line); });
  }
  [[nodiscard]] std::string Everything() const {
    return Shown(Records(Walk(files))) + "--\n" + Shown(Walk(removals)) + "--\n" + client;
  }
  static Records Walk(const FileRecordSet& set) {
    Records records;
    for (const FileRecord& record : set) records.push_back(record);
    return records;
  }

  FileRecordSet files;
  FileRecordSet removals;
  std::string client = "unchanged";
  std::vector<std::string> refused;
};

// The lines that are read at all.
std::vector<std::string_view> ReadLines(std::string_view text) {
  std::vector<std::string_view> lines = LinesOf(text.substr(0, text.find('\0')));
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].size() > 511) lines.resize(i);
  }
  return lines;
}

bool HoldsMarker(const FileRecord& record) {
  return record.path.find("VelmoraUpdate") != std::string::npos;
}

void CheckFields(const FileRecord& record) {
  const bool fits = record.path.size() <= 259 && record.transferHash.size() <= 40 &&
                    record.transferSize.size() <= 31 && record.contentHash.size() <= 40 &&
                    record.contentSize.size() <= 31;
  Require(fits, "no field is over its limit", Shown(record));
  Require(Shown(record).find_first_of("\r\n,", 0) == std::string::npos,
          "no field holds a comma or a line's end", Shown(record));
}

// Every record of a line stands where the library would put it, and nowhere else.
void CheckAgainstLines(const Lists& lists, std::string_view text) {
  LibrarySet files;
  LibrarySet removals;
  std::string client = "unchanged";
  std::size_t refused = 0;
  std::size_t marked = 0;
  for (const std::string_view line : ReadLines(text)) {
    const ListLine scanned = ScanListLine(line);
    const bool counts =
        scanned.keyword == "FILE" || scanned.keyword == "DEL" || scanned.keyword == "EXE";
    if (counts && !IsWithinLimits(scanned)) {
      ++refused;
    } else if (scanned.keyword == "FILE") {
      files.insert(UpdateRecord(scanned));
      if (HoldsMarker(UpdateRecord(scanned))) ++marked;
    } else if (scanned.keyword == "DEL") {
      removals.insert(RemoveRecord(scanned));
    } else if (scanned.keyword == "EXE") {
      client = scanned.fields[0];
    }
  }
  const Records walk = Lists::Walk(lists.files);
  Require(Shown(walk) == Shown(Records(files.begin(), files.end())), "the files' walk",
          Shown(walk));
  const Records removed = Lists::Walk(lists.removals);
  Require(Shown(removed) == Shown(Records(removals.begin(), removals.end())), "the removals' walk",
          Shown(removed));
  Require(lists.files.Count() == walk.size(), "the count is the walk's length");
  Require(client == lists.client, "the last client counts", client);
  Require(refused == lists.refused.size(), "each line over a limit is refused, no other");
  std::size_t walkedMarked = 0;
  for (const FileRecord& record : walk) walkedMarked += HoldsMarker(record) ? 1 : 0;
  Require(marked == walkedMarked, "every record of the patcher's enters");
  for (const FileRecord& record : walk) CheckFields(record);
}

void CheckOrder(const Records& walk) {
  for (std::size_t i = 1; i < walk.size(); ++i) {
    const std::string& a = walk[i - 1].path;
    const std::string& b = walk[i].path;
    Require(a.size() < b.size() || (a.size() == b.size() && a < b), "paths ascend", a + '\n' + b);
  }
}

std::string FileLine(const FileRecord& record) {
  std::string line = "FILE : " + record.path + (record.compressed ? ".compressed" : "");
  for (const std::string& field :
       {record.transferHash, record.transferSize, record.contentHash, record.contentSize}) {
    if (field.empty()) break;
    line += ", " + field;
  }
  return line + '\n';
}

std::string Printed(const Lists& lists) {
  std::string text = "EXE : " + lists.client + '\n';
  for (const FileRecord& record : lists.removals) {
    text += "DEL : " + record.path;
    if (!record.transferHash.empty()) text += ", " + record.transferHash;
    text += '\n';
  }
  for (const FileRecord& record : lists.files) text += FileLine(record);
  return text;
}

void CheckPrintedAndReadAgain(const Lists& lists) {
  const std::string printed = Printed(lists);
  Lists again;
  again.Add(printed);
  Require(again.Everything() == lists.Everything(), "printed and read again", printed);
}

bool IsOrdered(const Lists& lists) {
  for (const FileRecordSet* set : {&lists.files, &lists.removals}) {
    for (const FileRecord& record : *set) {
      if (HoldsMarker(record)) return false;
    }
  }
  return true;
}

// A list cut behind a whole line gives exactly what its lines say: reading on with what was cut off
// comes to the same as reading all.
void CheckCut(const Lists& lists, std::string_view text) {
  const std::vector<std::string_view> lines = ReadLines(text);
  if (lines.size() < 2) return;
  const std::string_view cutOff = lines[lines.size() / 2];
  const auto cut = static_cast<std::size_t>(cutOff.data() - text.data());
  Lists pieces;
  pieces.Add(text.substr(0, cut));
  pieces.Add(text.substr(cut));
  Require(pieces.Everything() == lists.Everything(), "read in two pieces", text.substr(cut));
}

}  // namespace
}  // namespace velmora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora::fuzz;
  const std::string_view text = TextOf(data, size);
  Lists lists;
  lists.Add(text);
  CheckAgainstLines(lists, text);
  CheckCut(lists, text);
  if (IsOrdered(lists)) {
    CheckOrder(Lists::Walk(lists.files));
    CheckPrintedAndReadAgain(lists);
  }
  return 0;
}
