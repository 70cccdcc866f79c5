#include "publish/build/removals.h"

#include <algorithm>
#include <iterator>
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

bool HoldsWildcard(const std::string& path) {
  return path.find_first_of("*?") != std::string::npos;
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

  [[nodiscard]] bool HasFile(const std::string& path) const { return files_.contains(path); }
  [[nodiscard]] bool HasFolder(const std::string& path) const {
    return directories_.contains(path);
  }

  // How many elements of this path name what is a file; 0 if none of the folders above it is one.
  [[nodiscard]] std::size_t DepthOfFileAbove(const std::string& path) const {
    const auto folders = FoldersAbove(path);
    const auto file = std::find_if(folders.begin(), folders.end(), [this](std::string_view folder) {
      return files_.contains(std::string(folder));
    });
    return file == folders.end() ? 0 : static_cast<std::size_t>(file - folders.begin()) + 1;
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
    if (!IsFolderRemoval(removal) && files_.contains(path)) return path;
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
  if (!isPattern && HoldsWildcard(removal.path)) {
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

// Whether a pattern can name this one file. Semicolons separate patterns, and spaces in front of
// one may be dropped.
bool CanBePattern(const std::string& path) {
  return !HoldsWildcard(path) && path.find(';') == std::string::npos && !path.starts_with(' ');
}

bool NamesOnePath(const FileRecord& removal) {
  return !IsPatternRemoval(removal) || CanBePattern(removal.path);
}

// The path, or its first `depth` elements, as a patcher spells it on its walk through the
// installation.
std::string WalkedPath(const std::string& path, std::size_t depth = std::string::npos) {
  std::string walked;
  for (const std::string_view element : PathElements(path)) {
    if (element.empty() || element == ".") continue;
    if (depth-- == 0) break;
    if (!walked.empty()) walked += '\\';
    walked += element;
  }
  return walked;
}

FileRecord Removal(const std::string& path, const char* mode = "") {
  FileRecord removal;
  removal.path = path;
  removal.transferHash = mode;
  return removal;
}

// What players of earlier publications have to lose for the new one, besides what is requested.
class Clearance {
 public:
  Clearance(const PublishedFiles& files, Complaints& complaints)
      : files_(files), complaints_(complaints) {}

  // A file of the earlier publication.
  void AddFile(const FileRecord& file);
  // A removal of its list.
  void AddRemoval(const FileRecord& removal);
  // In byte order. Paths may appear more than once.
  [[nodiscard]] std::vector<FileRecord> Sorted() &&;

 private:
  void AddFolder(const std::string& path, std::size_t depth);
  void AddFolderAlone(const std::string& path);
  void AddFileAlone(const std::string& path);
  void ComplainOfDeadEnd(const std::string& path, const char* why);

  const PublishedFiles& files_;
  Complaints& complaints_;
  std::vector<FileRecord> removals_;
};

void Clearance::AddFile(const FileRecord& file) {
  const std::string path = FoldedPath(file.path);
  const std::string walked = WalkedPath(file.path);
  if (files_.HasFile(path)) return;
  if (files_.HasFolder(path) && kPatcher.contains(path)) {
    ComplainOfDeadEnd(walked, "a file that patchers need is a folder now");
  } else if (files_.HasFolder(path) && !CanBePattern(walked)) {
    ComplainOfDeadEnd(walked,
                      "a file of the earlier publication is a folder now, and no removal takes "
                      "only a file if its name holds a semicolon or begins with a space");
  } else {
    AddRemoval(Removal(file.path));
  }
}

void Clearance::AddRemoval(const FileRecord& removal) {
  if (removal.path.empty()) return;  // patchers ignore it
  if (!CheckWithin(removal, complaints_)) return;
  const bool isPattern = IsPatternRemoval(removal);
  const std::string path = FoldedPath(removal.path);
  const std::size_t depth = NamesOnePath(removal) ? files_.DepthOfFileAbove(path) : 0;
  if (depth > 0) AddFolder(removal.path, depth);
  if (!files_.HitBy(removal)) {
    removals_.push_back(removal);
  } else if (!isPattern && !IsFolderRemoval(removal)) {
    files_.HasFolder(path) ? AddFileAlone(removal.path) : AddFolderAlone(removal.path);
  }
}

// A folder that is a file now has to go itself, with everything in it: removals of files leave
// their folders behind. They stay in the list for the day when the folder comes back.
void Clearance::AddFolder(const std::string& path, std::size_t depth) {
  const std::string folder = WalkedPath(path, depth);
  const std::string removed = folder + "\\";
  if (removed.size() <= kMaxRemovedFolder) {
    removals_.push_back(Removal(removed));
  } else {
    ComplainOfDeadEnd(folder,
                      "a folder of the earlier publication is a file now, and its path is too long "
                      "for a removal");
  }
}

// The removal may have been one of a folder, which players may still have where the file comes.
void Clearance::AddFolderAlone(const std::string& path) {
  const std::string removed = WalkedPath(path) + "\\";
  if (removed.size() <= kMaxRemovedFolder) removals_.push_back(Removal(removed));
}

// Players may have the file that has become a folder, or was gone before the folder came.
void Clearance::AddFileAlone(const std::string& path) {
  const std::string walked = WalkedPath(path);
  if (CanBePattern(walked)) removals_.push_back(Removal(walked, kPatternMode));
}

void Clearance::ComplainOfDeadEnd(const std::string& path, const char* why) {
  complaints_.Add(ShownText(path), std::string(why) + "; players who have it could never update",
                  "choose another name for the new one");
}

std::vector<FileRecord> Clearance::Sorted() && {
  std::sort(removals_.begin(), removals_.end(), [](const FileRecord& a, const FileRecord& b) {
    return std::pair(a.path, a.transferHash) < std::pair(b.path, b.transferHash);
  });
  return std::move(removals_);
}

}  // namespace

std::vector<FileRecord> Removals(const std::vector<FileRecord>& requested,
                                 const PublishedList* earlier, const std::vector<SourceFile>& files,
                                 Complaints& complaints) {
  const PublishedFiles published(files);
  for (const FileRecord& removal : requested) CheckRequested(removal, published, complaints);
  std::vector<FileRecord> removals = requested;
  if (earlier != nullptr) {
    Clearance clearance(published, complaints);
    for (const FileRecord& file : earlier->files) clearance.AddFile(file);
    for (const FileRecord& removal : earlier->removals) clearance.AddRemoval(removal);
    for (FileRecord& removal : std::move(clearance).Sorted()) {
      removals.push_back(std::move(removal));
    }
  }
  // To patchers, removals of the same path are the same, whatever their modes.
  std::set<std::string> keys;
  std::set<std::string> paths;
  std::erase_if(removals, [&](const FileRecord& removal) {
    const bool isNew = keys.insert(RemovalKey(removal)).second;
    return !paths.insert(removal.path).second || !isNew;
  });
  return removals;
}

std::vector<FileRecord> RemovalsInTheWay(const std::vector<FileRecord>& removals,
                                         const std::vector<SourceFile>& files) {
  const PublishedFiles published(files);
  std::vector<FileRecord> found;
  std::copy_if(removals.begin(), removals.end(), std::back_inserter(found),
               [&published](const FileRecord& removal) {
                 const std::string path = FoldedPath(removal.path);
                 return NamesOnePath(removal) &&
                        (published.DepthOfFileAbove(path) > 0 || published.HasFolder(path) ||
                         (IsFolderRemoval(removal) && published.HasFile(path)));
               });
  return found;
}

}  // namespace velmora::publish
