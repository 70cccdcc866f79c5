// Any bytes as a reference list: what enters the sets, and in which order.
#include <set>

#include "engine/reference_list.h"
#include "harness.h"

namespace velmora::fuzz {
namespace {

struct Before {
  bool operator()(const FileRecord& a, const FileRecord& b) const { return FileRecordBefore(a, b); }
};

// The library's tree looks for the place of a record by the same comparisons and keeps its balance
// by the same rules, so that it gives the same walk even where the ordering is none. That is so of
// this library and this use alone; the program can't rely on it.
using LibrarySet = std::set<FileRecord, Before>;

std::string Shown(const auto& records) {
  std::string text;
  for (const FileRecord& record : records) {
    for (const std::string& field : {record.path, record.transferHash, record.transferSize,
                                     record.contentHash, record.contentSize}) {
      text += field + '|';
    }
    text += record.compressed ? "compressed\n" : "\n";
  }
  return text;
}

struct Lists {
  void Add(std::string_view text) {
    ParseReferenceList(text, files, removals, client, [this](std::string_view) { ++refused; });
  }

  FileRecordSet files;
  FileRecordSet removals;
  std::string client = "unchanged";
  std::size_t refused = 0;
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
  Require(record.path.size() <= 259 && record.transferHash.size() <= 40 &&
              record.transferSize.size() <= 31 && record.contentHash.size() <= 40 &&
              record.contentSize.size() <= 31,
          "no field is over its limit", record.path);
  Require((record.path + record.transferHash + record.contentHash).find_first_of("\r\n,") ==
              std::string::npos,
          "no field holds a comma or a line's end", record.path);
}

// Every record of a line stands where the library would put it, and nowhere else.
void CheckAgainstLines(const Lists& lists, std::string_view text) {
  LibrarySet files;
  LibrarySet removals;
  std::string client = "unchanged";
  std::size_t refused = 0;
  std::ptrdiff_t marked = 0;
  for (const std::string_view line : ReadLines(text)) {
    const ListLine scanned = ScanListLine(line);
    const bool isFile = scanned.keyword == "FILE";
    if (!isFile && scanned.keyword != "DEL" && scanned.keyword != "EXE") continue;
    if (!IsWithinLimits(scanned)) {
      ++refused;
    } else if (isFile) {
      files.insert(UpdateRecord(scanned));
      marked += HoldsMarker(UpdateRecord(scanned)) ? 1 : 0;
    } else if (scanned.keyword == "DEL") {
      removals.insert(RemoveRecord(scanned));
    } else {
      client = scanned.fields[0];
    }
  }
  Require(Shown(lists.files) == Shown(files), "the files' walk", Shown(lists.files));
  Require(Shown(lists.removals) == Shown(removals), "the removals' walk", Shown(lists.removals));
  Require(lists.files.Count() == files.size(), "the count is the walk's length");
  Require(client == lists.client, "the last client counts", client);
  Require(refused == lists.refused, "each line over a limit is refused, no other");
  Require(marked == std::count_if(files.begin(), files.end(), HoldsMarker),
          "every record of the patcher's enters");
  for (const FileRecord& record : files) CheckFields(record);
}

void CheckOrder(const Lists& lists) {
  std::vector<FileRecord> walk;
  for (const FileRecord& record : lists.files) walk.push_back(record);
  if (std::any_of(walk.begin(), walk.end(), HoldsMarker)) return;
  for (std::size_t i = 1; i < walk.size(); ++i) {
    const std::string& a = walk[i - 1].path;
    const std::string& b = walk[i].path;
    Require(a.size() < b.size() || (a.size() == b.size() && a < b), "paths ascend", a + '\n' + b);
  }
}

// A list cut after a whole line gives exactly what its lines say: reading on with what was cut off
// comes to the same as reading all.
void CheckCut(const Lists& lists, std::string_view text) {
  const std::vector<std::string_view> lines = ReadLines(text);
  if (lines.size() < 2) return;
  const auto cut = static_cast<std::size_t>(lines[lines.size() / 2].data() - text.data());
  Lists pieces;
  pieces.Add(text.substr(0, cut));
  pieces.Add(text.substr(cut));
  Require(Shown(pieces.files) == Shown(lists.files) &&
              Shown(pieces.removals) == Shown(lists.removals) && pieces.client == lists.client,
          "read in two pieces", text.substr(cut));
}

}  // namespace

void CheckInput(std::string_view text) {
  Lists lists;
  lists.Add(text);
  CheckAgainstLines(lists, text);
  CheckOrder(lists);
  CheckCut(lists, text);
}

}  // namespace velmora::fuzz
