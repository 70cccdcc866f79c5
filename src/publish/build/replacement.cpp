#include "publish/build/replacement.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

#include "platform/files.h"
#include "publish/build/new_file.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"

namespace velmora::publish {

namespace fs = std::filesystem;

namespace {

constexpr char kTrial[] = ".publishing-trial";
constexpr char kJournal[] = "journal";
constexpr char kUndoing[] = "journal.undo";
constexpr char kUnfinished[] = "journal.new";
constexpr char kOld[] = ".old";
constexpr char kEnd[] = "end ";

// A link counts as what it is, wherever it leads.
bool Exists(const fs::path& path) {
  std::error_code error;
  const fs::file_type kind = platform::EntryKind(path, error);
  if (error) FailToWrite(path, error);
  return kind != fs::file_type::not_found;
}

void Remove(const fs::path& path) {
  std::error_code error;
  platform::RemoveEntry(path, error);
  if (error) FailToWrite(path, error);
}

void Rename(const fs::path& from, const fs::path& to) {
  std::error_code error;
  platform::MoveEntry(from, to, error);
  if (error) FailToWrite(to, error);
}

bool IsFolder(const fs::path& path) {
  return platform::EntryKind(path) == fs::file_type::directory;
}

void AddAllIn(const fs::path& folder, std::vector<fs::path>& all) {
  std::error_code error;
  for (const platform::FolderEntry& entry : platform::ListFolder(folder, error)) {
    all.push_back(entry.path);
    if (entry.kind == fs::file_type::directory) AddAllIn(entry.path, all);
  }
  if (error) {
    throw PublishError(ShownPath(folder) + ": can't be read: " + platform::ErrorText(error));
  }
}

// A file, or a folder with all that is in it, each folder before its contents.
std::vector<fs::path> AllAt(const fs::path& path) {
  std::vector<fs::path> all = {path};
  if (IsFolder(path)) AddAllIn(path, all);
  return all;
}

// Removes a folder with those in it. If there is anything else, that stays, and so does its folder.
void RemoveFolders(const fs::path& path) {
  const std::vector<fs::path> all = AllAt(path);
  for (auto entry = all.rbegin(); entry != all.rend(); ++entry) {
    std::error_code ignored;
    if (IsFolder(*entry)) fs::remove(*entry, ignored);
  }
}

}  // namespace

// A line of the journal, such as "17 1 data/a.pak\n".
struct Replacement::Entry {
  enum class Kind {
    kNew = 0,
    kReplaces = 1,  // a file that is kept until all have taken their places
    kGoes = 2,      // what is at the place makes room for others: there is no new file
  };
  std::size_t number;
  Kind kind;
  fs::path place;
};

Replacement::Replacement(fs::path folder, fs::path output)
    : folder_(std::move(folder)),
      output_(std::move(output)),
      journal_(folder_ / kJournal),
      undoing_(folder_ / kUndoing) {}

fs::path Replacement::NewAt(const Entry& entry) const {
  return folder_ / std::to_string(entry.number);
}

fs::path Replacement::OldAt(const Entry& entry) const {
  return folder_ / (std::to_string(entry.number) + kOld);
}

// What is the first on the way to the place that isn't what it has to be, a folder, or at its end
// no folder. Empty if nothing is. `clear` is a folder to which nothing is in the way, such as that
// of the place before.
fs::path Replacement::ObstacleTo(const fs::path& place, fs::path& clear) const {
  const fs::path parent = place.parent_path();
  fs::path path;
  for (const fs::path& element : parent == clear ? fs::path() : parent) {
    path /= element;
    if (!Exists(output_ / path)) return {};
    if (!fs::is_directory(output_ / path)) return path;
  }
  clear = parent;
  return fs::is_directory(output_ / place) ? place : fs::path();
}

std::vector<fs::path> Replacement::FilesInTheWay(const std::vector<Placement>& placements) const {
  std::set<fs::path> files;
  fs::path clear;
  for (const Placement& placement : placements) {
    const fs::path obstacle = ObstacleTo(placement.place, clear);
    if (obstacle.empty()) continue;
    for (const fs::path& path : AllAt(output_ / obstacle)) {
      if (!IsFolder(path)) files.insert(path.lexically_relative(output_));
    }
  }
  return {files.begin(), files.end()};
}

void Replacement::Run(const std::vector<Placement>& placements) const {
  const std::vector<Entry> entries = Prepare(placements);
  try {
    WriteJournal(entries);
    Place(entries, Places::kAll);
  } catch (const PublishError& failure) {
    if (IsPending()) TakeBack(entries, failure.what());
    throw;
  }
}

// Each obstacle goes when the first file needs its place.
std::vector<Replacement::Entry> Replacement::Prepare(
    const std::vector<Placement>& placements) const {
  std::size_t next = 0;
  for (const Placement& placement : placements) next = std::max(next, placement.number + 1);
  std::vector<Entry> entries;
  std::set<fs::path> obstacles;
  fs::path clear;
  fs::path tried;
  for (const Placement& placement : placements) {
    const fs::path obstacle = ObstacleTo(placement.place, clear);
    if (!obstacle.empty() && obstacles.insert(obstacle).second) {
      entries.push_back({next++, Entry::Kind::kGoes, obstacle});
    }
    entries.push_back(obstacle.empty()
                          ? Prepare(placement)
                          : Entry{placement.number, Entry::Kind::kNew, placement.place});
    const fs::path parent =
        (output_ / (obstacle.empty() ? placement.place : obstacle)).parent_path();
    if (parent != tried) TryFolder(parent);
    tried = parent;
  }
  return entries;
}

void Replacement::TakeBack(const std::vector<Entry>& entries, const std::string& failure) const
    try {
  Undo(entries);
} catch (const PublishError& undoFailure) {
  throw PublishError(failure +
                     "; the earlier files can't be restored, either: " + undoFailure.what() +
                     "; remove the cause, then run: velmora-publish recover " + ShownPath(output_));
}

// Makes the folders of the place, and a second name for the file that is there.
Replacement::Entry Replacement::Prepare(const Placement& placement) const {
  const fs::path target = output_ / placement.place;
  std::error_code error;
  fs::create_directories(target.parent_path(), error);
  if (error) FailToWrite(target, error);
  const auto kind = Exists(target) ? Entry::Kind::kReplaces : Entry::Kind::kNew;
  Entry entry{placement.number, kind, placement.place};
  if (kind == Entry::Kind::kNew) return entry;
  Remove(OldAt(entry));
  fs::create_hard_link(target, OldAt(entry), error);
  // Not every file system has hard links.
  if (error) fs::copy_file(target, OldAt(entry), fs::copy_options::overwrite_existing, error);
  if (error) FailToWrite(OldAt(entry), error);
  return entry;
}

// A file is moved there and removed, as the real ones will be moved: that shows whether the rights
// suffice, and that it is no other file system.
void Replacement::TryFolder(const fs::path& target) const {
  const fs::path trial = folder_ / kTrial;
  fs::path place = target / kTrial;
  while (Exists(place)) place += "_";
  NewFile(trial).Commit();
  Rename(trial, place);
  Remove(place);
}

void Replacement::WriteJournal(const std::vector<Entry>& entries) const {
  std::string text;
  for (const Entry& entry : entries) {
    text += std::to_string(entry.number) + ' ' + std::to_string(static_cast<int>(entry.kind)) +
            ' ' + TextOf(entry.place) + '\n';
  }
  text += kEnd + std::to_string(entries.size()) + '\n';
  const fs::path unfinished = folder_ / kUnfinished;
  NewFile file(unfinished);
  file.Write(text.data(), text.size());
  file.Commit();
  Flush();
  Rename(unfinished, journal_);
  Flush();
}

std::vector<Replacement::Entry> Replacement::ReadJournal() const {
  const fs::path& file = Exists(undoing_) ? undoing_ : journal_;
  const std::string text = ReadWholeFile(file);
  std::istringstream lines(text);
  std::vector<Entry> entries;
  std::string place;
  int kind = 0;
  for (Entry entry{}; lines >> entry.number >> kind && kind >= 0 &&
                      kind <= static_cast<int>(Entry::Kind::kGoes) && lines.get() == ' ' &&
                      std::getline(lines, place);) {
    entry.kind = static_cast<Entry::Kind>(kind);
    entry.place = PathOf(place);
    entries.push_back(entry);
  }
  if (!text.ends_with('\n' + (kEnd + std::to_string(entries.size())) + '\n')) {
    throw PublishError(ShownPath(file) +
                       ": damaged, so what a killed build has left can't be recovered; remove " +
                       ShownPath(folder_) +
                       " with all that is in it, and build once more, which makes again what is "
                       "lost");
  }
  return entries;
}

// In the first run every file must be there. Later, those that aren't are in their places already.
void Replacement::Place(const std::vector<Entry>& entries, Places places) const {
  for (const Entry& entry : entries) {
    const bool isLast = &entry == &entries.back();
    if (isLast) Flush();
    PlaceOne(entry, places);
  }
  Flush();
  Remove(journal_);
  Flush();
}

void Replacement::PlaceOne(const Entry& entry, Places places) const {
  const fs::path target = output_ / entry.place;
  if (entry.kind == Entry::Kind::kGoes) {
    if (places == Places::kAll || !Exists(OldAt(entry))) Rename(target, OldAt(entry));
  } else if (places == Places::kAll || Exists(NewAt(entry))) {
    // Where something else was in the way, the folder is still missing.
    std::error_code error;
    fs::create_directories(target.parent_path(), error);
    if (error) FailToWrite(target, error);
    Rename(NewAt(entry), target);
  }
}

// The list, which is the last one, first: it mustn't name what goes.
void Replacement::Undo(const std::vector<Entry>& entries) const {
  if (Exists(journal_)) {
    Rename(journal_, undoing_);
    Flush();
  }
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) UndoOne(*entry);
  Flush();
  Remove(undoing_);
  Flush();
}

// May have been done before. The folder of a new file may then be a file again, and the new file's
// place a folder.
void Replacement::UndoOne(const Entry& entry) const {
  const fs::path target = output_ / entry.place;
  if (entry.kind == Entry::Kind::kNew) {
    if (!Exists(NewAt(entry)) && Exists(target) && !IsFolder(target)) Remove(target);
  } else if (Exists(OldAt(entry))) {
    if (entry.kind == Entry::Kind::kGoes) RemoveFolders(target);
    Rename(OldAt(entry), target);
  }
}

bool Replacement::Owns(const std::string& name) {
  for (const char* const own : {kTrial, kJournal, kUndoing, kUnfinished}) {
    if (name == own) return true;
  }
  const std::size_t digits = std::min(name.find_first_not_of("0123456789"), name.size());
  return digits > 0 && (digits == name.size() || name.substr(digits) == kOld);
}

bool Replacement::IsPending() const { return Exists(journal_) || Exists(undoing_); }

Leftover Replacement::Recover() const {
  if (!IsPending()) return Leftover::kNone;
  const std::vector<Entry> entries = ReadJournal();
  if (Exists(journal_)) {
    try {
      Place(entries, Places::kRemaining);
      return Leftover::kFinished;
    } catch (const PublishError& failure) {
      TakeBack(entries, failure.what());
      return Leftover::kUndone;
    }
  }
  Undo(entries);
  return Leftover::kUndone;
}

void Replacement::Flush() const {
  if (platform::FlushDirectory(folder_)) return;
  FailToWrite(folder_, {platform::LastSystemError(), std::system_category()});
}

}  // namespace velmora::publish
