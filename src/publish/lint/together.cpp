#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "engine/record_set.h"
#include "publish/common/list_path.h"
#include "publish/common/published_list.h"
#include "publish/common/redirection.h"
#include "publish/lint/checks.h"

namespace velmora::publish {
namespace {

bool IsPatchers(const FileRecord& record) {
  return record.path.find(kUpdateMarker) != std::string::npos;
}

auto Fields(const FileRecord& record) {
  return std::tie(record.transferHash, record.transferSize, record.contentHash, record.contentSize,
                  record.compressed);
}

std::string SeeLine(std::size_t line) { return "see line " + std::to_string(line); }

using ByFolded = std::map<std::string, const ListedRecord*>;

Rule RuleAgainstBoth(const FileRecord& first, const FileRecord& second) {
  if (first.path != second.path) return Rule::kSameFile;
  if (IsPatchers(second)) return Rule::kSamePatcherPath;
  return Fields(first) == Fields(second) ? Rule::kSameLine : Rule::kSamePath;
}

bool IsPatchersOwnFile(const std::string& folded) {
  return folded == kPatcherProgram || folded == kPatcherSettings || IsPatchersOwn(folded);
}

// Whether the list also has a file of the name of one of this file's folders.
void CheckFoldersOf(const ListedRecord& listed, const ByFolded& files, Findings& findings) {
  for (const std::string_view folder : FoldersAbove(listed.folded)) {
    if (IsPatchersOwnFile(std::string(folder))) {
      findings.Add(Rule::kPatcherFile, listed, "as a folder");
      return;
    }
    const auto file = files.find(std::string(folder));
    if (file == files.end()) continue;
    findings.Add(Rule::kFileIsFolder, listed, SeeLine(file->second->line));
    return;
  }
}

void CheckPatchersOwn(const ListedRecord& listed, Findings& findings) {
  const auto holds = [&listed](const char* part) {
    return listed.record.path.find(part) != std::string::npos;
  };
  if (IsPatchersOwn(listed.folded)) {
    findings.Add(Rule::kPatcherFile, listed);
  } else if (listed.folded == kPatcherSettings) {
    if (!holds("./VelmoraUpdate.dat")) findings.Add(Rule::kSettingsWithoutRestart, listed);
  } else if (listed.folded == kPatcherProgram) {
    if (!holds("VelmoraUpdate.exe")) findings.Add(Rule::kProgramWithoutRestart, listed);
  } else if (listed.folded == kRedirectionName) {
    findings.Add(Rule::kRedirection, listed);
  } else if (IsPatchers(listed.record)) {
    findings.Add(Rule::kPatcherNameInPath, listed);
  }
}

// Adds a finding of `rule` for each removal that deletes the file. A removal of the whole
// installation has a rule of its own.
void CheckRemovalsOf(const std::string& folded, Rule rule, const std::string& detail,
                     const ListedRecords& records, Findings& findings) {
  for (const std::size_t i : records.removalIndex.Matching(folded)) {
    const ListedRecord& removal = records.removals[i];
    if (!RemovesEverything(removal.record)) findings.Add(rule, removal, detail);
  }
}

}  // namespace

void CheckFilesTogether(const ListedRecords& records, Findings& findings) {
  if (records.files.empty()) findings.Add(Rule::kNoFiles, 0, "");
  ByFolded files;
  for (const ListedRecord& listed : records.files) {
    const auto [at, isFirst] = files.emplace(listed.folded, &listed);
    if (!isFirst) {
      findings.Add(RuleAgainstBoth(at->second->record, listed.record), listed,
                   SeeLine(at->second->line));
    }
    CheckPatchersOwn(listed, findings);
  }
  for (const ListedRecord& listed : records.files) CheckFoldersOf(listed, files, findings);
}

void CheckRemovals(const ListedRecords& records, Findings& findings) {
  std::set<std::string> keys;
  std::set<std::string> paths;
  for (const ListedRecord& removal : records.removals) {
    const bool isNewPath = paths.insert(removal.record.path).second;
    if (!keys.insert(RemovalKey(removal.record)).second) {
      findings.Add(Rule::kSameRemoval, removal);
    } else if (!isNewPath) {
      findings.Add(Rule::kRemovalInOtherMode, removal);
    }
    if (RemovesEverything(removal.record)) findings.Add(Rule::kRemovesEverything, removal);
  }
  for (const ListedRecord& file : records.files) {
    CheckRemovalsOf(file.folded, Rule::kListedAndRemoved,
                    file.record.path + ", " + SeeLine(file.line), records, findings);
  }
  for (const char* own : {kPatcherProgram, kPatcherSettings}) {
    CheckRemovalsOf(own, Rule::kRemovesPatcher, own, records, findings);
  }
  for (const char* own : kPatchersOwnInRoot) {
    CheckRemovalsOf(own, Rule::kRemovesPatcherFiles, own, records, findings);
  }
}

void CheckClients(const ListedRecords& records, const std::vector<TreeFile>* tree,
                  Findings& findings) {
  for (std::size_t i = 1; i < records.clients.size(); ++i) {
    findings.Add(Rule::kSeveralClients, records.clients[i]);
  }
  std::vector<std::string> paths;
  for (const ListedRecord& file : records.files) paths.push_back(file.record.path);
  if (tree != nullptr) {
    for (const TreeFile& file : *tree) paths.push_back(file.listPath);
  }
  ListedClient client;
  if (!records.clients.empty()) {
    client = {records.clients.back().line, records.clients.back().record.path};
  }
  CheckClient(client, paths, tree != nullptr, findings);
  if (!client.name.starts_with('\\')) return;
  const auto isClient = [folded = FoldedPath(client.name)](const std::string& path) {
    return FoldedPath(path) == folded;
  };
  const bool isListed =
      std::any_of(records.files.begin(), records.files.end(),
                  [&](const ListedRecord& file) { return isClient(file.record.path); });
  // One that isn't in the tree either is worse.
  const bool isToBeListed = tree == nullptr || std::any_of(paths.begin(), paths.end(), isClient);
  if (!isListed && isToBeListed) {
    findings.Add(Rule::kClientNotListed, client.line, client.name);
  }
}

void CheckOrder(std::string_view text, const ListedRecords& records, Findings& findings) {
  const PublishedList list(text);
  bool isFront = true;
  std::set<std::string> notInFront;
  for (const FileRecord& record : list.files) {
    if (!IsPatchers(record)) isFront = false;
    if (IsPatchers(record) && !isFront) notInFront.insert(record.path);
  }
  for (const ListedRecord& listed : records.files) {
    if (notInFront.contains(listed.record.path)) findings.Add(Rule::kPatcherNotFirst, listed);
  }
}

void CheckTree(const std::vector<TreeFile>& tree, const ListedRecords& records,
               Findings& findings) {
  std::set<std::string> listed;
  for (const ListedRecord& file : records.files) listed.insert(file.folded);
  for (const TreeFile& file : tree) {
    const std::string folded = FoldedPath(file.listPath);
    if (listed.contains(folded) || IsPatchersOwnFile(folded)) continue;
    const std::vector<std::size_t> removals = records.removalIndex.Matching(folded);
    // What a removal names itself, as each that follows from an earlier list does, isn't lost
    // unseen.
    const bool isNamed = std::any_of(removals.begin(), removals.end(), [&](std::size_t i) {
      return records.removals[i].folded == folded;
    });
    if (isNamed) continue;
    for (const std::size_t i : removals) {
      findings.Add(Rule::kRemovesUnlisted, records.removals[i], file.listPath);
    }
  }
}

}  // namespace velmora::publish
