#include "publish/build/publication.h"

#include <optional>

#include "publish/build/complaints.h"
#include "publish/build/earlier_publication.h"
#include "publish/build/list_text.h"
#include "publish/build/new_file.h"
#include "publish/build/plan.h"
#include "publish/build/staging.h"
#include "publish/common/parallel_for.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

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
  RequireUsable(options);
  // Its lock holds from the reading of the earlier list to the end.
  const Staging staging(options.output);
  const PublicationPlan plan = PlanPublication(options);

  NewFiles newFiles(staging);
  const std::vector<FileRecord> records = WriteRecords(plan.files, options, staging, newFiles);
  const std::string list = ListText(records, plan.removals, plan.clientExe);
  // The settings hold the list's digest, so that they are valid for no other list.
  newFiles.AddText(plan.files.size(), SettingsText(options.payload, list), kSettingsName);
  newFiles.AddText(plan.files.size() + 1, list, options.listName);
  StopIfAsked(options.payload);
  newFiles.Publish();
  return Sum(records, plan.earlier.get());
}

}  // namespace velmora::publish
