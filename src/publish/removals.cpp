#include "publish/removals.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "platform/paths.h"
#include "publish/list_path.h"
#include "publish/publish_error.h"
#include "publish/removal_reach.h"
#include "publish/shown_text.h"

namespace velmora::publish {
namespace {

// In the root of the installation, and as PlayersPath gives them.
const std::set<std::string> kPatcher = {"velmoraupdate.exe", "velmoraupdate.dat"};

std::string Key(const FileRecord& removal) {
  return PlayersPath(removal.path) + (IsPatternRemoval(removal) ? "\n" : "");
}

// The published files, as removals see them.
class PublishedFiles {
 public:
  explicit PublishedFiles(const std::vector<SourceFile>& files) {
    for (const SourceFile& file : files) {
      const std::string path = PlayersPath(file.listPath);
      files_.emplace(path);
      for (const std::string_view folder : FoldersAbove(path)) {
        directories_.emplace(folder, path);
      }
    }
  }

  // One of the files that the removal would delete.
  [[nodiscard]] std::optional<std::string> HitBy(const FileRecord& removal) const {
    if (IsPatternRemoval(removal)) {
      const auto hit = std::find_if(files_.begin(), files_.end(), [&](const std::string& path) {
        return platform::MatchPathPattern(path, removal.path);
      });
      return hit == files_.end() ? std::nullopt : std::optional(*hit);
    }
    const std::string path = PlayersPath(removal.path);
    if (files_.contains(path)) return path;
    const auto directory = directories_.find(path);
    return directory == directories_.end() ? std::nullopt : std::optional(directory->second);
  }

 private:
  std::set<std::string> files_;
  std::map<std::string, std::string> directories_;  // each with a file somewhere in it
};

void RequireWithin(const FileRecord& removal) {
  // A pattern is tried on paths within the installation alone.
  if (!IsPatternRemoval(removal) && LeavesInstallation(removal.path)) {
    throw PublishError("a removal leads out of the installation: " + ShownText(removal.path));
  }
  if (RemovesEverything(removal)) {
    throw PublishError("a removal names the whole installation: " + ShownText(removal.path));
  }
}

FileRecord Removal(const FileRecord& gone) {
  FileRecord removal;
  removal.path = gone.path;
  return removal;
}

std::vector<FileRecord> NecessaryAfter(const PublishedList& earlier, const PublishedFiles& files) {
  std::vector<FileRecord> removals;
  for (const FileRecord& file : earlier.files) {
    if (!kPatcher.contains(PlayersPath(file.path))) removals.push_back(Removal(file));
  }
  for (const FileRecord& removal : earlier.removals) removals.push_back(removal);
  std::erase_if(removals, [&files](const FileRecord& removal) {
    if (removal.path.empty()) return true;  // patchers do nothing for it
    RequireWithin(removal);
    return files.HitBy(removal).has_value();
  });
  std::sort(removals.begin(), removals.end(), [](const FileRecord& a, const FileRecord& b) {
    return std::pair(a.path, a.transferHash) < std::pair(b.path, b.transferHash);
  });
  return removals;
}

}  // namespace

std::vector<FileRecord> Removals(const std::vector<FileRecord>& asked, const PublishedList* earlier,
                                 const std::vector<SourceFile>& files) {
  const PublishedFiles published(files);
  for (const FileRecord& removal : asked) {
    RequireWithin(removal);
    if (const auto hit = published.HitBy(removal)) {
      throw PublishError("the removal of " + ShownText(removal.path) +
                         " would delete a published file at each start: " + ShownText(*hit));
    }
  }
  std::vector<FileRecord> removals = asked;
  if (earlier != nullptr) {
    for (FileRecord& removal : NecessaryAfter(*earlier, published)) {
      removals.push_back(std::move(removal));
    }
  }
  std::set<std::string> keys;
  std::erase_if(removals,
                [&keys](const FileRecord& removal) { return !keys.insert(Key(removal)).second; });
  return removals;
}

}  // namespace velmora::publish
