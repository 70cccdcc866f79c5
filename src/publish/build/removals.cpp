#include "publish/build/removals.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "platform/paths.h"
#include "publish/common/list_path.h"
#include "publish/common/removal_index.h"
#include "publish/common/shown_text.h"

namespace velmora::publish {
namespace {

const std::set<std::string> kPatcher = {kPatcherProgram, kPatcherSettings};

std::string Key(const FileRecord& removal) {
  return FoldedPath(removal.path) + (IsPatternRemoval(removal) ? "\n" : "");
}

// The folded paths of the published files, and of the patcher, which every player has.
class PublishedFiles {
 public:
  explicit PublishedFiles(const std::vector<SourceFile>& files) : files_(kPatcher) {
    for (const SourceFile& file : files) {
      const std::string path = FoldedPath(file.listPath);
      files_.emplace(path);
      for (const std::string_view folder : FoldersAbove(path)) {
        directories_.emplace(folder, path);
      }
    }
  }

  // Whether this file is a folder in the new publication, or lies in what is a file there.
  [[nodiscard]] bool IsInTheWay(const std::string& path) const {
    const auto folders = FoldersAbove(path);
    return directories_.contains(path) ||
           std::any_of(folders.begin(), folders.end(), [this](std::string_view folder) {
             return files_.contains(std::string(folder));
           });
  }

  // One of the files that the removal would delete, if any.
  [[nodiscard]] std::optional<std::string> HitBy(const FileRecord& removal) const {
    if (IsPatternRemoval(removal)) {
      const auto hit = std::find_if(files_.begin(), files_.end(), [&](const std::string& path) {
        return platform::MatchPathPattern(path, removal.path);
      });
      return hit == files_.end() ? std::nullopt : std::optional(*hit);
    }
    const std::string path = FoldedPath(removal.path);
    if (files_.contains(path)) return path;
    const auto directory = directories_.find(path);
    return directory == directories_.end() ? std::nullopt : std::optional(directory->second);
  }

 private:
  std::set<std::string> files_;
  std::map<std::string, std::string> directories_;  // each with a file somewhere below it
};

// Whether the removal keeps to the installation and leaves something of it.
bool CheckWithin(const FileRecord& removal, Complaints& complaints) {
  const auto complain = [&](const char* what, const char* wayOut) {
    complaints.Add(ShownText(removal.path), std::string("a removal ") + what, wayOut);
    return false;
  };
  // Patterns are only matched against paths within the installation.
  const bool isPattern = IsPatternRemoval(removal);
  if (!isPattern && LeavesInstallation(removal.path)) {
    return complain("leads out of the installation", "name a path relative to it");
  }
  if (!isPattern && removal.path.find_first_of("*?") != std::string::npos) {
    return complain("by its name can't hold * or ?", "--remove-pattern takes patterns");
  }
  if (RemovesEverything(removal)) {
    return complain("names the whole installation", "name what players shall lose");
  }
  return true;
}

void CheckRequested(const FileRecord& removal, const PublishedFiles& files,
                    Complaints& complaints) {
  if (!CheckWithin(removal, complaints)) return;
  const auto hit = files.HitBy(removal);
  if (!hit) return;
  complaints.Add(
      ShownText(removal.path),
      "the removal would delete a file that players need, at each start: " + ShownText(*hit),
      kPatcher.contains(*hit) ? "narrow the removal down"
                              : "narrow the removal down, or leave the file out with --ignore");
}

FileRecord Removal(const FileRecord& gone) {
  FileRecord removal;
  removal.path = gone.path;
  return removal;
}

// A list can't replace a file by a folder: what removes the old one would remove the new one too.
void CheckSameKind(const PublishedList& earlier, const PublishedFiles& files,
                   Complaints& complaints) {
  for (const FileRecord& file : earlier.files) {
    if (!files.IsInTheWay(FoldedPath(file.path))) continue;
    complaints.Add(ShownText(file.path),
                   "a file of the earlier publication is a folder now, or lies in what is a file "
                   "now; players of that one could never update",
                   "choose another name");
  }
}

std::vector<FileRecord> RemovalsAfter(const PublishedList& earlier, const PublishedFiles& files,
                                      Complaints& complaints) {
  std::vector<FileRecord> removals;
  for (const FileRecord& file : earlier.files) {
    if (!kPatcher.contains(FoldedPath(file.path))) removals.push_back(Removal(file));
  }
  for (const FileRecord& removal : earlier.removals) removals.push_back(removal);
  std::erase_if(removals, [&](const FileRecord& removal) {
    if (removal.path.empty()) return true;  // patchers ignore it
    return !CheckWithin(removal, complaints) || files.HitBy(removal).has_value();
  });
  std::sort(removals.begin(), removals.end(), [](const FileRecord& a, const FileRecord& b) {
    return std::pair(a.path, a.transferHash) < std::pair(b.path, b.transferHash);
  });
  return removals;
}

}  // namespace

std::vector<FileRecord> Removals(const std::vector<FileRecord>& requested,
                                 const PublishedList* earlier, const std::vector<SourceFile>& files,
                                 Complaints& complaints) {
  const PublishedFiles published(files);
  for (const FileRecord& removal : requested) CheckRequested(removal, published, complaints);
  std::vector<FileRecord> removals = requested;
  if (earlier != nullptr) {
    CheckSameKind(*earlier, published, complaints);
    for (FileRecord& removal : RemovalsAfter(*earlier, published, complaints)) {
      removals.push_back(std::move(removal));
    }
  }
  // To patchers, removals of the same path are the same, whatever their modes.
  std::set<std::string> keys;
  std::set<std::string> paths;
  std::erase_if(removals, [&](const FileRecord& removal) {
    const bool isNew = keys.insert(Key(removal)).second;
    return !paths.insert(removal.path).second || !isNew;
  });
  return removals;
}

}  // namespace velmora::publish
