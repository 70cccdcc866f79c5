#include "publish/build/publication.h"

#include <algorithm>
#include <memory>
#include <optional>

#include "base/ascii.h"
#include "engine/reference_list.h"
#include "publish/build/complaints.h"
#include "publish/build/earlier_publication.h"
#include "publish/build/list_text.h"
#include "publish/build/new_file.h"
#include "publish/build/removals.h"
#include "publish/build/staging.h"
#include "publish/common/disk_text.h"
#include "publish/common/parallel_for.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/common/shown_text.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// Whether it exists or not, and however it is spelled.
fs::path Canonical(const fs::path& path) {
  const fs::path canonical = fs::weakly_canonical(fs::absolute(path));
  return canonical.has_filename() ? canonical : canonical.parent_path();
}

bool Holds(const fs::path& outer, const fs::path& inner) {
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

// If one folder contained the other, the publication would publish itself or overwrite its source.
void RequireApart(const fs::path& tree, const fs::path& output) {
  const fs::path from = Canonical(tree);
  const fs::path to = Canonical(output);
  if (Holds(from, to) || Holds(to, from)) {
    throw PublishError("neither of the tree and the publication may contain the other: " +
                       from.native() + ", " + to.native());
  }
}

// A file of this name below the data path redirects every player.
constexpr char kRedirectionName[] = "enable.cdn";

// Patchers don't escape the list's name in their request.
void RequireListName(const std::string& name) {
  const bool isPlain = name.find_first_of("/\\ ?#%") == std::string::npos && name != "." &&
                       name != ".." && !HasControl(name);
  const bool isTaken =
      name == Staging::kFolder || name == kSettingsName || name == kRedirectionName;
  if (name.empty() || !isPlain || isTaken || name.find(kCompressedMark) != std::string::npos) {
    throw PublishError("the list can't have the name \"" + name + "\"");
  }
}

IgnoreRules RulesOf(const BuildOptions& options) {
  const fs::path ofTree = options.tree / kIgnoreName;
  const fs::path& file = options.ignoreFile.empty() ? ofTree : options.ignoreFile;
  if (options.ignoreFile.empty() && !fs::exists(fs::symlink_status(file))) return {};
  IgnoreRules rules(ReadWholeFile(file));
  // Rules that are in the tree under another name aren't published either.
  rules.Add(fs::weakly_canonical(file).lexically_relative(fs::weakly_canonical(options.tree)));
  return rules;
}

using EarlierList = std::unique_ptr<const PublishedList>;

// Null if it isn't a list, or not one that patchers read to its end.
EarlierList ReadIfList(const fs::path& file) {
  const std::string text = ReadWholeFile(file);
  auto earlier = std::make_unique<const PublishedList>(text);
  const bool isList = text.empty() || earlier->files.Count() + earlier->removals.Count() > 0;
  if (!isList || !earlier->isReadWhole || !earlier->refused.empty()) return nullptr;
  return earlier;
}

// The list that removals are made from; null if there is none.
EarlierList ListToRemoveFrom(const BuildOptions& options) {
  if (options.removeFrom.empty()) return nullptr;
  const fs::path file = ListFile(options.removeFrom, options.listName);
  const fs::path own = options.output / options.listName;
  if (Canonical(file) == Canonical(own) && !fs::exists(own)) return nullptr;
  EarlierList earlier = ReadIfList(file);
  if (earlier == nullptr) {
    throw PublishError(file.native() + ": not a list, or not one that patchers read to its end");
  }
  return earlier;
}

// Null if there is none.
EarlierList ListInOutput(const BuildOptions& options) {
  const fs::path file = options.output / options.listName;
  return fs::exists(file) && !fs::is_directory(file) ? ReadIfList(file) : nullptr;
}

// Files of the tree can't collide with each other in the output, but with what the tool puts there.
// The file that redirects is among what the linter finds.
void CheckOwnPlaces(const std::vector<SourceFile>& files, const std::string& listName,
                    Complaints& complaints) {
  for (const SourceFile& file : files) {
    FileRecord record;
    record.path = file.listPath;
    const fs::path place = PayloadPlace(record);
    const fs::path first = *place.begin();
    const bool isTaken = first == listName || first == Staging::kFolder || first == kSettingsName ||
                         (first == kRedirectionName && place != first);
    if (!isTaken) continue;
    const char* const other = first == listName ? ", choose another --list" : "";
    complaints.Add(ShownPath(file.path.native()),
                   "\"" + ShownText(first.native()) + "\" is taken in the publication",
                   std::string("rename it") + other + ", or leave it out with --ignore");
  }
}

// The records of the files whose earlier payloads can stay; nothing for the others.
std::vector<std::optional<FileRecord>> UnchangedRecords(const std::vector<SourceFile>& files,
                                                        const BuildOptions& options) {
  const EarlierPublication earlier(options.output, options.listName, options.payload);
  std::vector<std::optional<FileRecord>> records(files.size());
  ParallelFor(files.size(), [&](std::size_t i) { records[i] = earlier.Unchanged(files[i]); });
  return records;
}

// Staged files on their way to their places, in the order in which they are added.
class NewFiles {
 public:
  explicit NewFiles(const Staging& staging) : staging_(staging) {}

  void Add(std::size_t number, const fs::path& place) { placements_.push_back({number, place}); }
  void AddText(std::size_t number, const std::string& text, const fs::path& place) {
    NewFile file(staging_.At(number));
    file.Write(text.data(), text.size());
    file.Commit();
    Add(number, place);
  }
  void Publish() const { staging_.Publish(placements_); }

 private:
  const Staging& staging_;
  std::vector<Placement> placements_;
};

// Writes the payloads that have to be made, each under its file's number, and adds them to
// `newFiles`. Returns the records of all files.
std::vector<FileRecord> WriteNewPayloads(const std::vector<SourceFile>& files,
                                         const BuildOptions& options, const Staging& staging,
                                         NewFiles& newFiles) {
  const auto unchanged = UnchangedRecords(files, options);
  std::vector<PayloadTask> tasks;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (!unchanged[i]) tasks.push_back({&files[i], staging.At(i)});
  }
  const std::vector<FileRecord> written = WritePayloads(tasks, options.payload);
  auto next = written.begin();
  std::vector<FileRecord> records;
  records.reserve(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    records.push_back(unchanged[i] ? *unchanged[i] : *next++);
    if (!unchanged[i]) newFiles.Add(i, PayloadPlace(records.back()));
  }
  return records;
}

// The same, but a file that can't be read isn't the only one that is named.
std::vector<FileRecord> WriteRecords(const std::vector<SourceFile>& files,
                                     const BuildOptions& options, const Staging& staging,
                                     NewFiles& newFiles) try {
  return WriteNewPayloads(files, options, staging, newFiles);
} catch (const PublishError&) {
  Complaints complaints;
  CheckReadable(files, complaints);
  complaints.ThrowIfAny();
  throw;
}

BuildSummary Sum(const std::vector<FileRecord>& records, const PublishedList* earlier) {
  BuildSummary summary;
  summary.files = records.size();
  for (const FileRecord& record : records) {
    summary.compressed += record.compressed ? 1 : 0;
    summary.contentBytes += std::stoull(record.contentSize);
    summary.transferBytes += std::stoull(record.transferSize);
  }
  const PublishedList none("");
  summary.changes = ChangesSince(earlier == nullptr ? none : *earlier, records);
  return summary;
}

}  // namespace

BuildSummary BuildPublication(const BuildOptions& options) {
  RequireApart(options.tree, options.output);
  RequireListName(options.listName);
  const Staging staging(options.output);
  Complaints complaints;
  const std::vector<SourceFile> files = ScanTree(options.tree, RulesOf(options), complaints);
  CheckOwnPlaces(files, options.listName, complaints);
  const EarlierList removeFrom = ListToRemoveFrom(options);
  const std::vector<FileRecord> removals =
      Removals(options.removals, removeFrom.get(), files, complaints);
  complaints.ThrowIfAny();
  if (files.empty() && !options.allowEmpty) {
    throw PublishError(
        ShownPath(options.tree.native()) +
        ": holds no file to publish. Is it complete? If so, --allow-empty allows it");
  }
  const EarlierList inOutput = removeFrom ? nullptr : ListInOutput(options);
  const PublishedList* const earlier = removeFrom ? removeFrom.get() : inOutput.get();
  if (earlier != nullptr) RequireFewRemoved(*earlier, files, options.maxRemovedPercent);
  // Refuses what a list can't express before the long work begins.
  static_cast<void>(ListText({}, removals, options.clientExe));

  NewFiles newFiles(staging);
  const std::vector<FileRecord> records = WriteRecords(files, options, staging, newFiles);
  const std::string list = ListText(records, removals, options.clientExe);
  // The settings hold the list's digest, so that they are valid for no other list.
  newFiles.AddText(files.size(), SettingsText(options.payload, list), kSettingsName);
  newFiles.AddText(files.size() + 1, list, options.listName);
  StopIfAsked(options.payload);
  newFiles.Publish();
  return Sum(records, earlier);
}

}  // namespace velmora::publish
