#include "publish/build/rollback.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include "publish/build/complaints.h"
#include "publish/build/finished_publication.h"
#include "publish/build/list_text.h"
#include "publish/build/new_publication.h"
#include "publish/build/payload.h"
#include "publish/build/plan.h"
#include "publish/build/publication_record.h"
#include "publish/build/published_payload.h"
#include "publish/build/removals.h"
#include "publish/build/size_spelling.h"
#include "publish/build/staging.h"
#include "publish/common/disk_text.h"
#include "publish/common/list_path.h"
#include "publish/common/parallel_for.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/common/redirection.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

using Redirection = std::optional<std::string>;

bool IsSameFolder(const fs::path& a, const fs::path& b) {
  std::error_code ignored;
  return fs::equivalent(a, b, ignored);
}

class Rollback {
 public:
  explicit Rollback(const RollbackOptions& options);

  RollbackSummary Publish();

 private:
  void ReadLists();
  void ReadListsOfFrom();
  void SpellSizes();
  [[nodiscard]] std::vector<FileRecord> FindRemovals() const;
  [[nodiscard]] Redirection RedirectionToWrite() const;
  [[nodiscard]] std::vector<std::size_t> StagePayloads();
  [[nodiscard]] bool StagePayload(const FileRecord& record, const fs::path& target) const;
  [[nodiscard]] std::string Settings(const std::string& list) const;
  void CountNotRepeated(const std::vector<FileRecord>& removals);

  const RollbackOptions& options_;
  PayloadOptions payload_;
  const Staging staging_;  // its lock holds from the reading of the lists to the end
  std::string earlierText_;
  std::unique_ptr<const PublishedList> earlier_;
  std::vector<std::unique_ptr<const PublishedList>> from_;
  std::vector<FileRecord> records_;
  RollbackSummary summary_;
};

Rollback::Rollback(const RollbackOptions& options) : options_(options), staging_(options.output) {
  payload_.stop = options.stop;
  ReadLists();
  ReadListsOfFrom();
  SpellSizes();
}

void Rollback::ReadLists() {
  earlier_ = ReadFinishedList(options_.earlier, options_.listName);
  if (earlier_->files.Count() == 0) {
    throw PublishError(ShownPath(options_.earlier) +
                       ": its list names no file; name the publication whose files shall come "
                       "back");
  }
  earlierText_ = ReadWholeFile(options_.earlier / PathOf(options_.listName));
  records_ = RecordsOf(earlier_->files);
  std::sort(records_.begin(), records_.end(),
            [](const FileRecord& a, const FileRecord& b) { return a.path < b.path; });
}

// Such a list may itself be the mistake. What counts is what patchers read of it.
void Rollback::ReadListsOfFrom() {
  for (const fs::path& place : options_.from) {
    if (fs::is_directory(place)) RequireFinished(place);
    const fs::path file = ListFile(place, options_.listName);
    const std::string text = ReadWholeFile(file);
    auto list = std::make_unique<const PublishedList>(text);
    if (!text.empty() && list->files.Count() + list->removals.Count() == 0) {
      throw PublishError(ShownPath(file) +
                         ": not a list; name the publication that players shall leave, and its "
                         "list by --list NAME");
    }
    from_.push_back(std::move(list));
  }
}

void Rollback::SpellSizes() {
  SizeSpelling spelling;
  spelling.Add(*earlier_);
  for (const auto& list : from_) spelling.Add(*list);
  const fs::path own = options_.output / PathOf(options_.listName);
  if (fs::is_regular_file(own)) spelling.Add(PublishedList(ReadWholeFile(own)));

  std::multimap<std::string, FileRecord> changes;
  for (const auto& list : from_) {
    for (const FileRecord& record : list->files) changes.emplace(FoldedPath(record.path), record);
  }
  for (FileRecord& record : records_) {
    const auto [begin, end] = changes.equal_range(FoldedPath(record.path));
    const bool isChanged = std::any_of(begin, end, [&record](const auto& other) {
      return other.second.contentHash != record.contentHash;
    });
    summary_.reread += isChanged ? 1 : 0;
    spelling.Spell(record, isChanged ? 1 : 0);
  }
}

// As if a tree with the earlier files followed a publication with all the others. Of the removals
// of `from`, those count that tell of files and folders which players of still other publications
// may have where the earlier ones have to go.
std::vector<FileRecord> Rollback::FindRemovals() const {
  std::vector<SourceFile> files;
  for (const FileRecord& record : records_) files.push_back({{}, record.path, 0});
  PublishedList others("");
  for (const auto& list : from_) {
    for (const FileRecord& record : list->files) others.files.InsertRecord(record);
    for (const FileRecord& removal : RemovalsInTheWay(RecordsOf(list->removals), files)) {
      others.removals.InsertRecord(removal);
    }
  }
  for (const FileRecord& removal : earlier_->removals) others.removals.InsertRecord(removal);
  Complaints complaints;
  std::vector<FileRecord> removals = Removals({}, &others, files, complaints);
  complaints.ThrowIfAny();
  return removals;
}

// Where these publications send players, they shall go in future, too. If they don't agree, only
// the publisher knows.
Redirection Rollback::RedirectionToWrite() const {
  const auto require = [](const std::string& where, const std::string& text) {
    Complaints complaints;
    for (const RedirectionFlaw& flaw : RedirectionFlaws(text)) complaints.Add(where, flaw.what);
    complaints.ThrowIfAny();
  };
  if (!options_.redirection.empty()) {
    require("--cdn", options_.redirection);
    return options_.redirection;
  }
  const fs::path own = options_.output / kRedirectionName;
  if (!options_.takesRedirection) {
    if (fs::exists(own)) require(ShownPath(own), ReadWholeFile(own));
    return std::nullopt;
  }
  std::vector<fs::path> folders = {options_.earlier};
  for (const fs::path& place : options_.from) {
    if (fs::is_directory(place)) folders.push_back(place);
  }
  if (fs::exists(options_.output / PathOf(options_.listName))) folders.push_back(options_.output);
  std::set<Redirection> found;
  for (const fs::path& folder : folders) {
    const fs::path file = folder / kRedirectionName;
    found.insert(fs::exists(file) ? Redirection(ReadWholeFile(file)) : std::nullopt);
  }
  if (found.size() > 1) {
    throw PublishError(
        "these publications have different files enable.cdn, or some have none; --cdn URL says "
        "where players go, and with --no-cdn " +
        ShownPath(own) + " stays as it is");
  }
  Redirection text = *found.begin();
  if (text) require(ShownPath(options_.earlier / kRedirectionName), *text);
  return text;
}

// The numbers of the records whose payloads aren't in the output already.
std::vector<std::size_t> Rollback::StagePayloads() {
  enum : char { kThere, kStaged, kMissing };
  std::vector<char> outcomes(records_.size(), kThere);
  ParallelFor(records_.size(), [&](std::size_t i) {
    const fs::path place = PayloadPlace(records_[i]);
    if (IsPayload(options_.output / place, records_[i], [this] { StopIfAsked(payload_); })) return;
    outcomes[i] = StagePayload(records_[i], staging_.At(i)) ? kStaged : kMissing;
  });
  Complaints complaints;
  std::vector<std::size_t> staged;
  for (std::size_t i = 0; i < records_.size(); ++i) {
    if (outcomes[i] == kStaged) staged.push_back(i);
    if (outcomes[i] != kMissing) continue;
    const fs::path file = options_.earlier / PayloadPlace(records_[i]);
    complaints.Add(ShownPath(file),
                   "is missing, can't be taken over, or isn't what the "
                   "list says",
                   "restore it, or build the publication again from its tree");
  }
  complaints.ThrowIfAny();
  return staged;
}

bool Rollback::StagePayload(const FileRecord& record, const fs::path& target) const {
  const fs::path file = options_.earlier / PayloadPlace(record);
  return HasSizeOfPayload(file, record) && LinkOrCopy(file, target) &&
         IsPayload(target, record, [this] { StopIfAsked(payload_); });
}

// Empty if it isn't known how the earlier publication was made.
std::string Rollback::Settings(const std::string& list) const {
  auto made = ReadSettings(options_.earlier);
  const std::string settings = ReadPublicationRecord(options_.earlier).settings;
  if (!made || settings != SettingsText(*made, earlierText_)) return {};
  return SettingsText(*made, list);
}

// Those of other paths than the new list's.
void Rollback::CountNotRepeated(const std::vector<FileRecord>& removals) {
  std::set<std::string> known;
  const auto add = [&known](const std::string& listPath) {
    const std::string path = FoldedPath(listPath);
    known.insert(path);
    for (const std::string_view folder : FoldersAbove(path)) known.emplace(folder);
  };
  for (const FileRecord& record : records_) add(record.path);
  for (const FileRecord& removal : removals) add(removal.path);
  for (const auto& list : from_) {
    for (const FileRecord& removal : list->removals) {
      if (known.insert(FoldedPath(removal.path)).second) ++summary_.notRepeated;
    }
  }
}

RollbackSummary Rollback::Publish() {
  const std::vector<FileRecord> removals = FindRemovals();
  const Redirection redirection = RedirectionToWrite();
  const std::string list = ListText(records_, removals, earlier_->clientExe);
  NewPublication publication(staging_, options_.output, options_.listName, records_.size());
  for (const std::size_t number : StagePayloads()) {
    publication.AddPayload(number, records_[number]);
  }
  if (redirection) publication.AddRedirection(*redirection);
  StopIfAsked(payload_);
  publication.Publish(records_, Settings(list), list);

  summary_.files = records_.size();
  summary_.removals = removals.size();
  CountNotRepeated(removals);
  summary_.changes = ChangesSince(*from_.back(), records_);
  return summary_;
}

}  // namespace

RollbackSummary RollBack(const RollbackOptions& options) {
  RequireListName(options.listName);
  if (IsSameFolder(options.earlier, options.output)) {
    throw PublishError(ShownPath(options.output) +
                       ": is the earlier publication itself; name another folder by --into");
  }
  return Rollback(options).Publish();
}

}  // namespace velmora::publish
