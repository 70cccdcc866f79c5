#include "publish/build/list_text.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "engine/record_set.h"
#include "engine/reference_list.h"
#include "publish/common/publish_error.h"
#include "publish/common/shown_text.h"

namespace velmora::publish {
namespace {

bool IsPatchers(const FileRecord& record) {
  return record.path.find(kUpdateMarker) != std::string::npos;
}

// 0 for the game's files, 1 for the patcher's, 2 for its program.
int Rank(const FileRecord& record) {
  if (!IsPatchers(record)) return 0;
  return record.path.ends_with(".exe") ? 2 : 1;
}

std::string FileLine(const FileRecord& record) {
  std::string line = "FILE : " + record.path;
  if (record.compressed) line += kCompressedMark;
  for (const std::string* field :
       {&record.transferHash, &record.transferSize, &record.contentHash, &record.contentSize}) {
    line += ", ";
    line += *field;
  }
  return line;
}

std::string RemovalLine(const FileRecord& removal) {
  std::string line = "DEL : " + removal.path;
  if (!removal.transferHash.empty()) line += ", " + removal.transferHash;
  return line;
}

void AddLine(std::string& text, const std::string& line) {
  if (line.size() > kMaxListLine)
    throw PublishError("a line of the list is too long: " + ShownText(line));
  text += line;
  text += '\n';
}

auto Fields(const FileRecord& record) {
  return std::tie(record.path, record.transferHash, record.transferSize, record.contentHash,
                  record.contentSize, record.compressed);
}

void RequireSame(const FileRecordSet& read, const std::vector<FileRecord>& intended,
                 const char* kind) {
  std::multimap<std::string, const FileRecord*> byPath;
  for (const FileRecord& record : intended) byPath.emplace(record.path, &record);
  bool same = read.Count() == intended.size();
  for (const FileRecord& record : read) {
    const auto found = byPath.find(record.path);
    same = same && found != byPath.end() && Fields(*found->second) == Fields(record);
    if (!same) break;
    byPath.erase(found);
  }
  if (!same)
    throw PublishError(std::string("a patcher would read other ") + kind + " from the list");
}

void RequireReadBack(const std::string& text, const std::vector<FileRecord>& records,
                     const std::vector<FileRecord>& removals, const std::string& clientExe) {
  FileRecordSet updateSet;
  FileRecordSet removeSet;
  std::string readExe;
  ParseReferenceList(text, updateSet, removeSet, readExe, [](std::string_view line) {
    throw PublishError("a patcher would refuse the line: " + ShownText(line));
  });
  RequireSame(updateSet, records, "files");
  RequireSame(removeSet, removals, "removals");
  if (readExe != clientExe) throw PublishError("a patcher would start another program");

  const auto patchers = std::count_if(records.begin(), records.end(), IsPatchers);
  auto at = updateSet.begin();
  for (auto i = patchers; i > 0; --i, ++at) {
    if (!IsPatchers(*at)) throw PublishError("a patcher would not deal with itself first");
  }
}

}  // namespace

std::string ListText(const std::vector<FileRecord>& records,
                     const std::vector<FileRecord>& removals, const std::string& clientExe) {
  std::vector<const FileRecord*> ordered;
  ordered.reserve(records.size());
  for (const FileRecord& record : records) ordered.push_back(&record);
  std::stable_sort(ordered.begin(), ordered.end(),
                   [](const FileRecord* a, const FileRecord* b) { return Rank(*a) < Rank(*b); });
  std::string text;
  if (!clientExe.empty()) AddLine(text, "EXE : " + clientExe);
  for (const FileRecord& removal : removals) AddLine(text, RemovalLine(removal));
  for (const FileRecord* record : ordered) AddLine(text, FileLine(*record));
  RequireReadBack(text, records, removals, clientExe);
  return text;
}

}  // namespace velmora::publish
