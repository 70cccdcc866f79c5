#include "publish/build/publication.h"

#include <algorithm>
#include <optional>

#include "publish/build/complaints.h"
#include "publish/build/earlier_publication.h"
#include "publish/build/list_text.h"
#include "publish/build/new_file.h"
#include "publish/build/plan.h"
#include "publish/build/published_payload.h"
#include "publish/build/staging.h"
#include "publish/common/parallel_for.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/common/redirection.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

void BeginPhase(const PayloadOptions& options, const char* name, std::size_t files = 0,
                std::uint64_t bytes = 0) {
  if (options.progress != nullptr) options.progress->Begin(name, files, bytes);
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

// A file's record, and whether its payload waits to be moved to its place.
struct Publishable {
  std::optional<FileRecord> record;  // nothing: the payload must be made
  bool isStaged = false;
};

// What earlier publications have of the files.
std::vector<Publishable> TakeOver(const std::vector<SourceFile>& files, const BuildOptions& options,
                                  const Staging& staging, BuildSummary& summary) {
  const EarlierPublication own(options.output, options.listName, options.payload);
  std::optional<EarlierPublication> other;
  if (!options.reuse.empty()) other.emplace(options.reuse, options.listName, options.payload);
  std::vector<Publishable> found(files.size());
  std::uint64_t bytes = 0;
  for (const SourceFile& file : files) bytes += file.size;
  BeginPhase(options.payload, "comparing", files.size(), bytes);
  const auto takeOver = [&](std::size_t i) {
    found[i].record = own.Unchanged(files[i]);
    if (!found[i].record && other) {
      found[i].record = other->Reuse(files[i], staging.At(i));
      found[i].isStaged = found[i].record.has_value();
    }
    if (Progress* const progress = options.payload.progress) {
      ++progress->files;
      progress->bytes += files[i].size;
    }
  };
  ParallelFor(files.size(), takeOver, options.payload.jobs);
  summary.canReuse = other && other->IsUsable();
  summary.reused = static_cast<std::size_t>(
      std::count_if(found.begin(), found.end(), [](const Publishable& p) { return p.isStaged; }));
  return found;
}

// Writes the payloads that have to be made, each under its file's number, and adds all new ones to
// `newFiles`. Returns the records of all files.
std::vector<FileRecord> WriteNewPayloads(const std::vector<SourceFile>& files,
                                         const BuildOptions& options, const Staging& staging,
                                         NewFiles& newFiles, BuildSummary& summary) {
  const std::vector<Publishable> found = TakeOver(files, options, staging, summary);
  std::vector<PayloadTask> tasks;
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (found[i].record) continue;
    tasks.push_back({&files[i], staging.At(i)});
    bytes += files[i].size;
  }
  BeginPhase(options.payload, "writing", tasks.size(), bytes);
  const std::vector<FileRecord> written = WritePayloads(tasks, options.payload);
  auto next = written.begin();
  std::vector<FileRecord> records;
  records.reserve(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    const bool isNew = !found[i].record || found[i].isStaged;
    records.push_back(found[i].record ? *found[i].record : *next++);
    if (isNew) newFiles.Add(i, PayloadPlace(records.back()));
  }
  return records;
}

// The same, but a file that can't be read isn't the only one that is named.
std::vector<FileRecord> WriteRecords(const std::vector<SourceFile>& files,
                                     const BuildOptions& options, const Staging& staging,
                                     NewFiles& newFiles, BuildSummary& summary) try {
  return WriteNewPayloads(files, options, staging, newFiles, summary);
} catch (const PublishError&) {
  Complaints complaints;
  CheckReadable(files, complaints);
  complaints.ThrowIfAny();
  throw;
}

void Sum(const std::vector<FileRecord>& records, const PublishedList* earlier,
         BuildSummary& summary) {
  summary.files = records.size();
  for (const FileRecord& record : records) {
    summary.compressed += record.compressed ? 1 : 0;
    summary.contentBytes += std::stoull(record.contentSize);
    summary.transferBytes += std::stoull(record.transferSize);
  }
  const PublishedList none("");
  summary.changes = ChangesSince(earlier == nullptr ? none : *earlier, records);
}

}  // namespace

BuildSummary BuildPublication(const BuildOptions& options) {
  RequireUsable(options);
  // Its lock holds from the reading of the earlier list to the end.
  const Staging staging(options.output);
  BeginPhase(options.payload, "reading the tree");
  const PublicationPlan plan = PlanPublication(options);

  BuildSummary summary;
  NewFiles newFiles(staging);
  std::vector<FileRecord> records = WriteRecords(plan.files, options, staging, newFiles, summary);
  for (FileRecord& record : records) plan.spelling.Spell(record);
  const std::string list = ListText(records, plan.removals, plan.clientExe);
  std::size_t number = plan.files.size();
  if (plan.redirection) newFiles.AddText(number++, *plan.redirection, kRedirectionName);
  // The settings hold the list's digest, so that they are valid for no other list.
  newFiles.AddText(number++, SettingsText(options.payload, list), kSettingsName);
  newFiles.AddText(number, list, options.listName);
  StopIfAsked(options.payload);
  BeginPhase(options.payload, "moving the files to their places");
  newFiles.Publish();
  Sum(records, plan.earlier.get(), summary);
  return summary;
}

}  // namespace velmora::publish
