#include "publish/build/publication.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "publish/build/complaints.h"
#include "publish/build/earlier_publication.h"
#include "publish/build/finished_publication.h"
#include "publish/build/list_text.h"
#include "publish/build/new_file.h"
#include "publish/build/new_publication.h"
#include "publish/build/other_lists.h"
#include "publish/build/plan.h"
#include "publish/build/publication_record.h"
#include "publish/build/published_payload.h"
#include "publish/build/staging.h"
#include "publish/common/parallel_for.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

void BeginPhase(const PayloadOptions& options, const char* name, std::size_t files = 0,
                std::uint64_t bytes = 0) {
  if (options.progress != nullptr) options.progress->Begin(name, files, bytes);
}

// A file's record, and whether its payload waits to be moved to its place, unless it is discarded.
struct Publishable {
  std::optional<FileRecord> record;  // nothing: the payload must be made
  bool isStaged = false;
};

// What becomes of the payloads.
struct PayloadUse {
  const Staging* staging;  // null: they are discarded
  bool isListTrusted;      // the earlier list's payloads are taken for intact
};

// What earlier publications have of the files.
std::vector<Publishable> TakeOver(const PublicationPlan& plan, const BuildOptions& options,
                                  const PayloadUse& use, BuildSummary& summary) {
  const std::vector<SourceFile>& files = plan.files;
  const EarlierPublication own =
      use.isListTrusted ? EarlierPublication(*plan.earlier, options.payload)
                        : EarlierPublication(options.output, options.listName, options.payload);
  std::optional<EarlierPublication> other;
  if (!options.reuse.empty()) other.emplace(options.reuse, options.listName, options.payload);
  std::vector<Publishable> found(files.size());
  std::uint64_t bytes = 0;
  for (const SourceFile& file : files) bytes += file.size;
  BeginPhase(options.payload, "comparing", files.size(), bytes);
  const auto takeOver = [&](std::size_t i) {
    found[i].record = own.Unchanged(files[i]);
    if (!found[i].record && other) {
      found[i].record = use.staging != nullptr ? other->Reuse(files[i], use.staging->At(i))
                                               : other->Unchanged(files[i]);
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

// Makes the payloads that no earlier publication has, each under its file's number. All files have
// a record then.
std::vector<Publishable> MakePayloads(const PublicationPlan& plan, const BuildOptions& options,
                                      const PayloadUse& use, BuildSummary& summary) {
  std::vector<Publishable> payloads = TakeOver(plan, options, use, summary);
  std::vector<PayloadTask> tasks;
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < payloads.size(); ++i) {
    if (payloads[i].record) continue;
    tasks.push_back({&plan.files[i], use.staging != nullptr ? use.staging->At(i) : fs::path()});
    bytes += plan.files[i].size;
  }
  BeginPhase(options.payload, use.staging != nullptr ? "writing" : "compressing", tasks.size(),
             bytes);
  const std::vector<FileRecord> made = WritePayloads(tasks, options.payload);
  auto next = made.begin();
  for (Publishable& payload : payloads) {
    if (!payload.record) payload = {*next++, true};
  }
  return payloads;
}

// The same, but a file that can't be read isn't the only one that is named.
std::vector<Publishable> MakeAllPayloads(const PublicationPlan& plan, const BuildOptions& options,
                                         const PayloadUse& use, BuildSummary& summary) try {
  return MakePayloads(plan, options, use, summary);
} catch (const PublishError&) {
  Complaints complaints;
  CheckReadable(plan.files, complaints);
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

// A publication with nothing left to do but to put everything in its place.
struct Prepared {
  PublicationPlan plan;
  std::vector<Publishable> payloads;
  std::vector<FileRecord> records;
  std::string list;
  BuildSummary summary;
};

Prepared Prepare(const BuildOptions& options, const PayloadUse& use) {
  BeginPhase(options.payload, "reading the tree");
  Prepared prepared{PlanPublication(options), {}, {}, {}, {}};
  const PublicationPlan& plan = prepared.plan;
  prepared.payloads = MakeAllPayloads(plan, options, use, prepared.summary);
  std::vector<FileRecord>& records = prepared.records;
  records.reserve(prepared.payloads.size());
  for (const Publishable& payload : prepared.payloads) {
    plan.spelling.Spell(records.emplace_back(*payload.record));
  }
  prepared.list = ListText(records, plan.removals, plan.clientExe);
  StopIfAsked(options.payload);
  prepared.summary.warnings = plan.start.warnings;
  prepared.summary.accepted = plan.start.accepted;
  prepared.summary.removesWhatIsGone = plan.removesWhatIsGone;
  Sum(records, plan.earlier.get(), prepared.summary);
  return prepared;
}

// Where a build would put its new files.
std::vector<Placement> PlacementsOf(const BuildOptions& options, const Prepared& prepared) {
  std::vector<Placement> placements;
  for (const Publishable& payload : prepared.payloads) {
    if (payload.isStaged) placements.push_back({placements.size(), PayloadPlace(*payload.record)});
  }
  for (const std::string& name : {std::string(kPublicationRecord), options.listName}) {
    placements.push_back({placements.size(), PathOf(name)});
  }
  return placements;
}

Preview PreviewOf(Prepared prepared) {
  return {prepared.summary, std::move(prepared.list), std::move(prepared.plan.earlier)};
}

}  // namespace

BuildSummary BuildPublication(const BuildOptions& options) {
  RequireUsable(options);
  // Its lock holds from the reading of the earlier list to the end.
  const Staging staging(options.output);
  const Prepared prepared = Prepare(options, {&staging, false});

  NewPublication publication(staging, options.output, options.listName, prepared.payloads.size());
  for (std::size_t i = 0; i < prepared.payloads.size(); ++i) {
    const Publishable& payload = prepared.payloads[i];
    if (payload.isStaged) publication.AddPayload(i, *payload.record);
  }
  const auto& redirection = prepared.plan.redirection;
  if (redirection) publication.AddRedirection(*redirection);
  StopIfAsked(options.payload);
  BeginPhase(options.payload, "moving the files to their places");
  publication.Publish(prepared.records, SettingsText(options.payload, prepared.list),
                      prepared.list);
  return prepared.summary;
}

Preview PreviewPublication(const BuildOptions& options) {
  RequireUsable(options);
  if (fs::exists(options.output) && !fs::is_directory(options.output)) {
    FailToWrite(options.output, "it is no folder");
  }
  RequireFinished(options.output);
  Prepared prepared = Prepare(options, {nullptr, false});
  RequireRoom(options.output, options.listName, PlacementsOf(options, prepared));
  RequireOthersUnharmed(options.output, options.listName, prepared.records);
  return PreviewOf(std::move(prepared));
}

// What players start with doesn't change the figures, and the client may not even be known.
Preview PreviewUpdate(const BuildOptions& options) {
  BuildOptions accepting = options;
  for (const LintRule& rule : LintRules()) {
    if (IsAboutStart(rule.id)) accepting.accepted.push_back(rule.id);
  }
  return PreviewOf(Prepare(accepting, {nullptr, true}));
}

}  // namespace velmora::publish
