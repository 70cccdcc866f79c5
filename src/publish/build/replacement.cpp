#include "publish/build/replacement.h"

#include <algorithm>
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
  const fs::file_status status = fs::symlink_status(path, error);
  if (error && status.type() != fs::file_type::not_found) FailToWrite(path, error);
  return fs::exists(status);
}

void Remove(const fs::path& path) {
  std::error_code error;
  fs::remove(path, error);
  if (error) FailToWrite(path, error);
}

void Rename(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::rename(from, to, error);
  if (error) FailToWrite(to, error);
}

}  // namespace

// A line of the journal, such as "17 1 data/a.pak\n"; `replaces` is 1 or 0.
struct Replacement::Entry {
  std::size_t number;
  bool replaces;  // a file that is kept until all have taken their places
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

void Replacement::Run(const std::vector<Placement>& placements) const {
  std::vector<Entry> entries;
  fs::path tried;
  for (const Placement& placement : placements) {
    entries.push_back(Prepare(placement));
    const fs::path parent = (output_ / placement.place).parent_path();
    if (parent != tried) TryFolder(parent);
    tried = parent;
  }
  try {
    WriteJournal(entries);
    Place(entries, Places::kAll);
  } catch (const PublishError& failure) {
    if (IsPending()) TakeBack(entries, failure.what());
    throw;
  }
}

void Replacement::TakeBack(const std::vector<Entry>& entries, const std::string& failure) const
    try {
  Undo(entries);
} catch (const PublishError& undoFailure) {
  throw PublishError(
      failure + "; the earlier files can't be restored, either: " + undoFailure.what() +
      "; remove the cause, then run: velmora-publish recover " + ShownPath(output_.native()));
}

// Makes the folders of the place, and a second name for the file that is there.
Replacement::Entry Replacement::Prepare(const Placement& placement) const {
  const fs::path target = output_ / placement.place;
  std::error_code error;
  fs::create_directories(target.parent_path(), error);
  if (error) FailToWrite(target, error);
  if (fs::is_directory(target, error)) {
    FailToWrite(target, std::make_error_code(std::errc::is_a_directory));
  }
  const bool replaces = Exists(target);
  Entry entry{placement.number, replaces, placement.place};
  if (!entry.replaces) return entry;
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
    text += std::to_string(entry.number) + ' ' + (entry.replaces ? '1' : '0') + ' ' +
            entry.place.generic_string() + '\n';
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
  for (Entry entry{}; lines >> entry.number >> entry.replaces && lines.get() == ' ' &&
                      std::getline(lines, place);) {
    entry.place = place;
    entries.push_back(entry);
  }
  if (!text.ends_with('\n' + (kEnd + std::to_string(entries.size())) + '\n')) {
    throw PublishError(ShownPath(file.native()) +
                       ": damaged; what a killed build has left can't be recovered");
  }
  return entries;
}

// In the first run every file must be there. Later, those that aren't are in their places already.
void Replacement::Place(const std::vector<Entry>& entries, Places places) const {
  for (const Entry& entry : entries) {
    const bool isLast = &entry == &entries.back();
    if (isLast) Flush();
    if (places == Places::kAll || Exists(NewAt(entry))) {
      Rename(NewAt(entry), output_ / entry.place);
    }
  }
  Flush();
  Remove(journal_);
  Flush();
}

// The list, which is the last one, first: it mustn't name what goes.
void Replacement::Undo(const std::vector<Entry>& entries) const {
  if (Exists(journal_)) {
    Rename(journal_, undoing_);
    Flush();
  }
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    const fs::path target = output_ / entry->place;
    if (entry->replaces) {
      if (Exists(OldAt(*entry))) Rename(OldAt(*entry), target);
    } else if (!Exists(NewAt(*entry))) {
      Remove(target);
    }
  }
  Flush();
  Remove(undoing_);
  Flush();
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
  if (platform::FlushDirectory(folder_.native())) return;
  FailToWrite(folder_, platform::SystemErrorText(platform::LastSystemError()));
}

}  // namespace velmora::publish
