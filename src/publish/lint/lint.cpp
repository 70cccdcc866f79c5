#include "publish/lint/lint.h"

#include <algorithm>
#include <tuple>

#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"
#include "publish/lint/checks.h"
#include "publish/lint/settings.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

void AddRecord(std::vector<ListedRecord>& records, std::size_t line, FileRecord record) {
  std::string folded = FoldedPath(record.path);
  records.push_back({line, std::move(record), std::move(folded)});
}

void ReadLine(std::string_view line, std::size_t number, const std::string& dataPath,
              ListedRecords& records, Findings& findings) {
  const ListLine scanned = ScanListLine(line);
  const LineUse use = CheckLine(line, scanned, number, findings);
  if (use == LineUse::kNone) return;
  if (scanned.keyword == "FILE") {
    AddRecord(records.files, number, UpdateRecord(scanned));
    if (use == LineUse::kRecord) CheckHashesAndSizes(records.files.back(), findings);
    CheckPath(records.files.back(), scanned.fields[0], dataPath, findings);
  } else if (scanned.keyword == "DEL") {
    AddRecord(records.removals, number, RemoveRecord(scanned));
    records.removalIndex.Add(records.removals.back().record);
    CheckRemovalPath(records.removals.back(), findings);
  } else {
    AddRecord(records.clients, number, RemoveRecord(scanned));
  }
}

void ReadLines(std::string_view text, const std::string& dataPath, ListedRecords& records,
               Findings& findings) {
  std::vector<std::string_view> lines;
  const std::string_view unread =
      ForEachListLine(text, [&lines](std::string_view line) { lines.push_back(line); });
  CheckEnd(text, unread, findings);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    ReadLine(lines[i], i + 1, dataPath, records, findings);
  }
}

std::string TreePath(const fs::path& file, const fs::path& root, NameEncoding encoding) {
  std::string path;
  for (const fs::path& element : file.lexically_relative(root)) {
    if (!path.empty()) path += '\\';
    path += ListedName(TextOf(element), encoding);
  }
  return path;
}

void AddFilesOf(const fs::path& folder, const LintOptions& options, std::vector<TreeFile>& files) {
  std::error_code error;
  std::error_code ignored;
  for (const platform::FolderEntry& entry : platform::ListFolder(folder, error)) {
    if (entry.kind == fs::file_type::directory) {
      AddFilesOf(entry.path, options, files);
    } else if (!fs::is_directory(entry.path, ignored)) {
      files.push_back({entry.path, TreePath(entry.path, *options.tree, options.treeNames)});
    }
  }
  if (error) {
    throw PublishError(ShownPath(folder) + ": can't be read: " + platform::ErrorText(error));
  }
}

// No files if there is no tree.
std::vector<TreeFile> TreeOf(const LintOptions& options) {
  std::vector<TreeFile> files;
  if (!options.tree) return files;
  AddFilesOf(*options.tree, options, files);
  return files;
}

// The path by which requests are as long as they can get.
std::string DataPathOf(const std::vector<TreeFile>& tree, const LintOptions& options) {
  if (options.dataPath) return *options.dataPath;
  if (options.settings) return LongestDataPath(*options.settings);
  const auto settings = std::find_if(tree.begin(), tree.end(), [](const TreeFile& file) {
    return FoldedPath(file.listPath) == kPatcherSettings;
  });
  return settings == tree.end() ? "" : LongestDataPath(settings->path);
}

void CheckStart(const std::vector<TreeFile>& files, const LintOptions& options,
                Findings& findings) {
  CheckStartFiles(files, options, findings);
  if (options.settings) CheckSettings(*options.settings, options, findings);
}

}  // namespace

std::vector<LintFinding> Findings::Sorted() && {
  std::stable_sort(found_.begin(), found_.end(), [](const LintFinding& a, const LintFinding& b) {
    return std::tie(a.file, a.line) < std::tie(b.file, b.line);
  });
  return std::move(found_);
}

std::vector<LintFinding> LintList(std::string_view text, const LintOptions& options) {
  Findings findings;
  ListedRecords records;
  const std::vector<TreeFile> tree = TreeOf(options);
  ReadLines(text, DataPathOf(tree, options), records, findings);
  CheckFilesTogether(records, findings);
  CheckRemovals(records, findings);
  CheckClients(records, options.tree ? &tree : nullptr, findings);
  CheckOrder(text, records, findings);
  CheckTree(tree, records, findings);
  CheckStart(tree, options, findings);
  return std::move(findings).Sorted();
}

std::vector<LintFinding> LintWithoutList(const LintOptions& options) {
  Findings findings;
  CheckStart(TreeOf(options), options, findings);
  return std::move(findings).Sorted();
}

std::vector<LintFinding> LintStart(const std::vector<TreeFile>& files, const std::string& clientExe,
                                   const LintOptions& options) {
  Findings findings;
  CheckStart(files, options, findings);
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (const TreeFile& file : files) paths.push_back(file.listPath);
  CheckClient({0, clientExe}, paths, true, findings);
  return std::move(findings).Sorted();
}

std::vector<LintFinding> LintFiles(std::string_view text, const std::string& dataPath) {
  Findings findings;
  ListedRecords records;
  ReadLines(text, dataPath, records, findings);
  CheckFilesTogether(records, findings);
  return std::move(findings).Sorted();
}

}  // namespace velmora::publish
