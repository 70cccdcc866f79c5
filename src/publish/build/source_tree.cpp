#include "publish/build/source_tree.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <system_error>

#include "engine/reference_list.h"
#include "publish/build/tree_names.h"
#include "publish/common/disk_text.h"
#include "publish/common/list_path.h"
#include "publish/common/parallel_for.h"
#include "publish/common/shown_text.h"
#include "publish/lint/lint.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// Patchers restart for new settings only if the list has this spelling.
constexpr char kSettingsFile[] = "VelmoraUpdate.dat";
constexpr char kSettingsListPath[] = "./VelmoraUpdate.dat";

constexpr char kLeaveOut[] = "leave it out with --ignore";

std::string OrLeaveOut(const std::string& wayOut) { return wayOut + ", or " + kLeaveOut; }

std::string Quoted(const std::string& shown) { return "\"" + shown + "\""; }

void ComplainUnreadable(const fs::path& path, const std::error_code& error,
                        Complaints& complaints) {
  complaints.Add(ShownPath(path), "can't be read: " + platform::ErrorText(error),
                 OrLeaveOut("make it readable"));
}

using Entry = platform::FolderEntry;
using Entries = std::vector<Entry>;

// Whether a disk of this system can hold the payload under the name by which it is requested.
bool HasPlace(const std::string& listPath) {
  const std::string served = ServedPath(listPath);
  return platform::ListTextOf(platform::PathOfListText(served)) == served;
}

// The names that the entries of one folder have in the list.
class ListNames {
 public:
  ListNames(const Entries& entries, bool isInRoot, NameEncoding encoding)
      : entries_(entries), isInRoot_(isInRoot), encoding_(encoding) {}

  // With a fault, the text is a proposal that has none, and that isn't the name of anything else in
  // the folder on players' disks: the rest of what the entry is and holds can be checked with it.
  [[nodiscard]] ListName Of(const Entry& entry) {
    ListName name = Read(entry);
    if (!name.fault.empty()) name.text = Free(PublishableName(name.text));
    return name;
  }

 private:
  [[nodiscard]] ListName Read(const Entry& entry) const {
    ListName name = ListNameOf(TextOf(entry.path.filename()), encoding_);
    const bool isFile = entry.kind != fs::file_type::directory;
    const std::string why = WhyNotPublishable(name.text, {isInRoot_, isFile});
    if (!name.fault.empty() && !why.empty()) name.fault += " and ";
    name.fault += why;
    return name;
  }

  std::string Free(std::string name) {
    if (taken_.empty()) {
      for (const Entry& entry : entries_) {
        const ListName other = Read(entry);
        if (other.fault.empty()) taken_.insert(FoldedPath(other.text));
      }
    }
    while (!taken_.insert(FoldedPath(name)).second) name.insert(0, 1, '_');
    return name;
  }

  const Entries& entries_;
  const bool isInRoot_;
  const NameEncoding encoding_;
  std::set<std::string> taken_;  // folded
};

class TreeScan {
 public:
  TreeScan(const fs::path& root, const IgnoreRules& rules, NameEncoding encoding,
           const std::string& dataPath, Complaints& complaints)
      : root_(root),
        rules_(rules),
        encoding_(encoding),
        dataPath_(dataPath),
        complaints_(complaints) {}

  std::vector<SourceFile> Run();

 private:
  bool ScanFolder(const fs::path& folder, const std::string& relative, const std::string& listed);
  [[nodiscard]] Entries EntriesOf(const fs::path& folder);
  void CheckName(const fs::path& path, const ListName& name);
  void AddFile(const Entry& entry, const std::string& listPath);
  void CheckGuesses();
  void CheckByLint();
  void AddLintError(const SourceFile& file, const LintFinding& finding);
  void AddConflict(const SourceFile& file, Rule rule);

  void Complain(const fs::path& path, const std::string& what, const std::string& wayOut) {
    complaints_.Add(ShownPath(path), what, wayOut);
  }

  const fs::path& root_;
  const IgnoreRules& rules_;
  const NameEncoding encoding_;
  const std::string& dataPath_;
  Complaints& complaints_;
  std::set<std::string> guessed_;  // paths whose last name could be UTF-8 or not
  std::vector<SourceFile> files_;
  std::map<std::string, const SourceFile*> byFolded_;  // for conflicts; made when first needed
};

Entries TreeScan::EntriesOf(const fs::path& folder) {
  std::error_code error;
  Entries entries = platform::ListFolder(folder, error);
  if (error) ComplainUnreadable(folder, error, complaints_);
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.path < b.path; });
  return entries;
}

// `relative` is the folder's path from the root, with a slash at its end; `listed` the same in the
// list, with backslashes. Both are empty for the root. Returns whether anything in it was looked
// at: the name of a folder doesn't matter if nothing in it is published.
bool TreeScan::ScanFolder(const fs::path& folder, const std::string& relative,
                          const std::string& listed) {
  const Entries entries = EntriesOf(folder);
  ListNames names(entries, relative.empty(), encoding_);
  bool holdsAny = false;
  for (const Entry& entry : entries) {
    const std::string name = TextOf(entry.path.filename());
    const bool isFolder = entry.kind == fs::file_type::directory;
    if (rules_.Ignores(relative + name, isFolder)) continue;
    const ListName listName = names.Of(entry);
    bool isPublished = true;
    if (isFolder) {
      isPublished = ScanFolder(entry.path, relative + name + "/", listed + listName.text + "\\");
    } else {
      AddFile(entry, listed + listName.text);
    }
    holdsAny = holdsAny || isPublished;
    if (isPublished) CheckName(entry.path, listName);
  }
  return holdsAny;
}

void TreeScan::CheckName(const fs::path& path, const ListName& name) {
  if (!name.fault.empty()) {
    Complain(path, name.fault,
             OrLeaveOut("rename it, for example to " + Quoted(ShownText(name.text))));
  }
  if (name.isGuessed) guessed_.insert(TextOf(path));
}

// One complaint for all: in a Japanese game it concerns nearly every name.
void TreeScan::CheckGuesses() {
  if (guessed_.empty()) return;
  const std::size_t others = guessed_.size() - 1;
  const std::string text = others == 0   ? ""
                           : others == 1 ? ", as 1 other does"
                                         : ", as " + std::to_string(others) + " others do";
  complaints_.Add(ShownPath(*guessed_.begin()), std::string(kNameIsGuessed) + text,
                  kWaysOutOfGuess);
}

void TreeScan::AddFile(const Entry& entry, const std::string& listPath) {
  const auto& [path, kind] = entry;
  std::error_code error;
  if (kind == fs::file_type::symlink) {
    const bool leadsSomewhere = fs::exists(path, error);
    Complain(path, leadsSomewhere ? "is a link" : "is a link that leads nowhere",
             OrLeaveOut(leadsSomewhere ? "replace it by what it leads to, as cp -L copies it"
                                       : "remove it"));
    return;
  }
  if (kind != fs::file_type::regular) {
    Complain(path, "is neither a plain file nor a folder", OrLeaveOut("remove it"));
    return;
  }
  if (listPath.size() > kMaxListPath) {
    Complain(path,
             "its path has " + std::to_string(listPath.size()) +
                 " bytes, and patchers read no more than " + std::to_string(kMaxListPath),
             OrLeaveOut("shorten it"));
    return;
  }
  if (!HasPlace(listPath)) {
    Complain(path,
             "holds the byte 5C in a character, which is requested as a slash, and the disks of "
             "this system have no such names",
             OrLeaveOut("rename it, publish it from another system"));
    return;
  }
  const std::uint64_t size = fs::file_size(path, error);
  if (error) {
    ComplainUnreadable(path, error, complaints_);
    return;
  }
  files_.push_back({path, listPath == kSettingsFile ? kSettingsListPath : listPath, size});
}

// The other file of a conflict is the one that is first in the list.
void TreeScan::AddConflict(const SourceFile& file, Rule rule) {
  if (byFolded_.empty()) {
    for (const SourceFile& other : files_) byFolded_.emplace(FoldedPath(other.listPath), &other);
  }
  const std::string folded = FoldedPath(file.listPath);
  const std::string wayOut = OrLeaveOut("rename one of the two");
  if (rule == Rule::kSameFile) {
    Complain(file.path,
             "differs only in case from " + ShownPath(byFolded_.at(folded)->path) +
                 ", and is the same file on players' disks",
             wayOut);
    return;
  }
  const std::vector<std::string_view> folders = FoldersAbove(folded);
  fs::path folder = file.path.parent_path();
  for (auto at = folders.rbegin(); at != folders.rend(); ++at, folder = folder.parent_path()) {
    const auto other = byFolded_.find(std::string(*at));
    if (other == byFolded_.end()) continue;
    Complain(other->second->path, "differs only in case from the folder " + ShownPath(folder),
             wayOut);
  }
}

void TreeScan::AddLintError(const SourceFile& file, const LintFinding& finding) {
  const LintRule& rule = *finding.rule;
  switch (rule.id) {
    case Rule::kSameFile:
    case Rule::kFileIsFolder:
      AddConflict(file, rule.id);
      break;
    case Rule::kNotASize:
      Complain(
          file.path,
          "has " + std::to_string(file.size) + " bytes, and patchers read sizes up to 2147483647",
          OrLeaveOut("split it"));
      break;
    case Rule::kPatcherFile:
    case Rule::kRedirection:
      Complain(file.path, std::string("is a ") + rule.what, kLeaveOut);
      break;
    case Rule::kSettingsWithoutRestart:
      Complain(file.path, rule.what, "rename it to " + Quoted(kSettingsFile));
      break;
    case Rule::kProgramWithoutRestart:
      Complain(file.path, rule.what, "rename it to \"VelmoraUpdate.exe\"");
      break;
    default:
      Complain(file.path, std::string(rule.what) + ". " + rule.reason, rule.remedy);
  }
}

// Checks a list of the files, each on its line, with invented hashes.
void TreeScan::CheckByLint() {
  const std::string hash = ", " + std::string(kMaxListHash, 'A') + ", ";
  std::string text;
  for (const SourceFile& file : files_) {
    const std::string size = std::to_string(file.size);
    text += "FILE : " + file.listPath;
    text += hash + size;
    text += hash + size + "\n";
  }
  for (const LintFinding& finding : LintFiles(text, dataPath_)) {
    if (finding.rule->severity != Severity::kError) continue;
    AddLintError(files_[finding.line - 1], finding);
  }
}

std::vector<SourceFile> TreeScan::Run() {
  ScanFolder(root_, "", "");
  std::sort(files_.begin(), files_.end(),
            [](const SourceFile& a, const SourceFile& b) { return a.listPath < b.listPath; });
  CheckByLint();
  CheckGuesses();
  if (complaints_.HasAny()) CheckReadable(files_, complaints_);
  return std::move(files_);
}

}  // namespace

std::vector<SourceFile> ScanTree(const fs::path& root, const IgnoreRules& rules,
                                 NameEncoding encoding, const std::string& dataPath,
                                 Complaints& complaints) {
  return TreeScan(root, rules, encoding, dataPath, complaints).Run();
}

// The rights of a file don't tell: the system knows only when it is asked.
void CheckReadable(const std::vector<SourceFile>& files, Complaints& complaints) {
  std::vector<std::error_code> errors(files.size());
  ParallelFor(files.size(), [&](std::size_t i) {
    platform::ClearStreamError();
    const bool isOpen = std::ifstream(files[i].path, std::ios::binary).is_open();
    if (!isOpen) errors[i] = platform::StreamError();
  });
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (errors[i]) ComplainUnreadable(files[i].path, errors[i], complaints);
  }
}

}  // namespace velmora::publish
