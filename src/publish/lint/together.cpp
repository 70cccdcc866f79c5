#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <system_error>
#include <tuple>

#include "engine/record_set.h"
#include "engine/verify_cache.h"
#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/lint/checks.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

constexpr char kProgram[] = "velmoraupdate.exe";
constexpr char kSettings[] = "velmoraupdate.dat";
constexpr char kRedirection[] = "enable.cdn";

bool IsPatchers(const FileRecord& record) {
  return record.path.find(kUpdateMarker) != std::string::npos;
}

auto Fields(const FileRecord& record) {
  return std::tie(record.transferHash, record.transferSize, record.contentHash, record.contentSize,
                  record.compressed);
}

std::string SeeLine(std::size_t line) { return "see line " + std::to_string(line); }

using ByFolded = std::map<std::string, const ListedRecord*>;

// Two records that are one file to players.
void CheckSameFile(const ListedRecord& first, const ListedRecord& second, Findings& findings) {
  int rule = 404;
  if (first.record.path == second.record.path) {
    const bool same = Fields(first.record) == Fields(second.record);
    rule = IsPatchers(second.record) ? 403 : same ? 401 : 402;
  }
  findings.Add(rule, second.line, second.record.path, SeeLine(first.line));
}

// Whether a record's file is a folder of this one's.
void CheckFoldersOf(const ListedRecord& listed, const ByFolded& files, Findings& findings) {
  for (const std::string_view folder : FoldersAbove(listed.folded)) {
    const auto file = files.find(std::string(folder));
    if (file == files.end()) continue;
    findings.Add(405, listed.line, listed.record.path, SeeLine(file->second->line));
    return;
  }
}

void CheckPatchersOwn(const ListedRecord& listed, Findings& findings) {
  const std::string& path = listed.record.path;
  const auto holds = [&path](const char* part) { return path.find(part) != std::string::npos; };
  if (IsPatchersOwn(listed.folded)) {
    findings.Add(605, listed.line, path);
  } else if (listed.folded == kSettings) {
    if (!holds("./VelmoraUpdate.dat")) findings.Add(601, listed.line, path);
  } else if (listed.folded == kProgram) {
    if (!holds("VelmoraUpdate.exe")) findings.Add(602, listed.line, path);
  } else if (listed.folded == kRedirection) {
    findings.Add(606, listed.line, path);
  } else if (IsPatchers(listed.record)) {
    findings.Add(604, listed.line, path);
  }
}

// Whether a removal of one name, as opposed to one of everything, takes the file.
void CheckListedFiles(const ListedRecords& records, Findings& findings) {
  for (const ListedRecord& file : records.files) {
    for (const std::size_t i : records.reach.Taking(file.folded)) {
      const ListedRecord& removal = records.removals[i];
      if (RemovesEverything(removal.record)) continue;
      findings.Add(406, removal.line, removal.record.path,
                   file.record.path + ", " + SeeLine(file.line));
    }
  }
}

// Adds a finding of `rule` for each removal that takes the patcher's file.
void CheckPatchersFile(const std::string& file, int rule, const ListedRecords& records,
                       Findings& findings) {
  for (const std::size_t i : records.reach.Taking(file)) {
    const ListedRecord& removal = records.removals[i];
    if (!RemovesEverything(removal.record)) {
      findings.Add(rule, removal.line, removal.record.path, file);
    }
  }
}

std::string TreePath(const fs::path& file, const fs::path& root) {
  std::string path;
  for (const fs::path& element : file.lexically_relative(root)) {
    if (!path.empty()) path += '\\';
    path += element.native();
  }
  return path;
}

bool IsPatchersOwnFile(const std::string& folded) {
  return folded == kProgram || folded == kSettings || IsPatchersOwn(folded);
}

}  // namespace

void CheckFilesTogether(const ListedRecords& records, Findings& findings) {
  if (records.files.empty()) findings.Add(410, 0, "");
  ByFolded files;
  for (const ListedRecord& listed : records.files) {
    const auto [at, isFirst] = files.emplace(listed.folded, &listed);
    if (!isFirst) CheckSameFile(*at->second, listed, findings);
    CheckPatchersOwn(listed, findings);
  }
  for (const ListedRecord& listed : records.files) CheckFoldersOf(listed, files, findings);
}

void CheckRemovals(const ListedRecords& records, Findings& findings) {
  std::map<std::string, bool> seen;  // whether it was a pattern
  for (const ListedRecord& removal : records.removals) {
    const FileRecord& record = removal.record;
    const auto [at, isFirst] = seen.emplace(removal.folded, IsPatternRemoval(record));
    if (!isFirst) {
      const bool sameMode = at->second == IsPatternRemoval(record);
      findings.Add(sameMode ? 407 : 509, removal.line, record.path);
    }
    if (RemovesEverything(record)) findings.Add(502, removal.line, record.path);
  }
  CheckListedFiles(records, findings);
  for (const char* own : {kProgram, kSettings}) CheckPatchersFile(own, 503, records, findings);
  for (const char* own : kPatchersOwnInRoot) CheckPatchersFile(own, 504, records, findings);
}

void CheckClients(const ListedRecords& records, Findings& findings) {
  for (std::size_t i = 1; i < records.clients.size(); ++i) {
    findings.Add(408, records.clients[i].line, records.clients[i].record.path);
  }
  if (records.clients.empty()) return;
  const ListedRecord& client = records.clients.back();
  const bool isInside = client.record.path.starts_with('\\');
  const bool isListed =
      std::any_of(records.files.begin(), records.files.end(),
                  [&client](const ListedRecord& file) { return file.folded == client.folded; });
  if (isInside && !isListed) findings.Add(409, client.line, client.record.path);
}

void CheckOrder(std::string_view text, const ListedRecords& records, Findings& findings) {
  const PublishedList list(text);
  bool isFront = true;
  std::set<std::string> behind;
  for (const FileRecord& record : list.files) {
    if (!IsPatchers(record)) isFront = false;
    if (IsPatchers(record) && !isFront) behind.insert(record.path);
  }
  for (const ListedRecord& listed : records.files) {
    if (behind.count(listed.record.path) > 0) findings.Add(603, listed.line, listed.record.path);
  }
}

void CheckTree(const fs::path& tree, const ListedRecords& records, Findings& findings) try {
  std::set<std::string> listed;
  for (const ListedRecord& file : records.files) listed.insert(file.folded);
  for (const auto& entry : fs::recursive_directory_iterator(tree)) {
    if (entry.is_directory()) continue;
    const std::string path = TreePath(entry.path(), tree);
    const std::string folded = PlayersPath(path);
    if (listed.count(folded) > 0 || IsPatchersOwnFile(folded)) continue;
    for (const std::size_t i : records.reach.Taking(folded)) {
      findings.Add(501, records.removals[i].line, records.removals[i].record.path, path);
    }
  }
} catch (const fs::filesystem_error& error) {
  throw PublishError(tree.native() + ": can't be read: " + error.code().message());
}

}  // namespace velmora::publish
