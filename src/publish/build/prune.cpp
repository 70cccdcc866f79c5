#include "publish/build/prune.h"

#include <algorithm>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

#include "publish/build/finished_publication.h"
#include "publish/build/new_file.h"
#include "publish/build/other_lists.h"
#include "publish/build/publication_record.h"
#include "publish/build/published_payload.h"
#include "publish/build/staging.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/common/redirection.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

std::string KeyOf(const std::string& payload) {
  return platform::NameKey(platform::PathOfListText(payload));
}

class Pruner {
 public:
  explicit Pruner(const PruneOptions& options)
      : options_(options), record_(ReadPublicationRecord(options.output)) {
    for (const std::string& path : record_.payloads) recorded_.insert(KeyOf(path));
  }

  PruneSummary Find();
  void Delete(const PruneSummary& summary, const Staging& staging);

 private:
  void Keep(const PublishedList& list, const fs::path& file);
  void Spare(const fs::path& path);
  [[nodiscard]] bool IsSpared(const fs::path& path) const;
  void LookInto(const fs::path& folder, PruneSummary& summary);
  void Look(const fs::path& file, PruneSummary& summary);
  void StopIfAsked() const;

  const PruneOptions& options_;
  PublicationRecord record_;
  std::set<std::string> named_;     // by lists; keys of names, like the next
  std::set<std::string> recorded_;  // as payloads of the tool
  std::set<fs::path> spared_;       // relative to the folder, like all others
};

PruneSummary Pruner::Find() {
  Keep(*ReadFinishedList(options_.output, options_.listName),
       options_.output / PathOf(options_.listName));
  for (const fs::path& place : options_.keep) {
    const fs::path file = ListFile(place, options_.listName);
    const auto list = ReadPublishedList(file);
    if (list == nullptr) {
      throw PublishError(ShownPath(file) +
                         ": not a list that patchers read to its end, so it isn't known what it "
                         "keeps; name another one, or leave it out");
    }
    Keep(*list, file);
  }
  for (const auto& [file, list] : OtherLists(options_.output, options_.listName)) Keep(*list, file);
  for (const fs::path& path : options_.spare) Spare(path);

  PruneSummary summary;
  LookInto(options_.output, summary);
  std::sort(summary.needless.begin(), summary.needless.end(),
            [](const auto& a, const auto& b) { return a.path < b.path; });
  return summary;
}

void Pruner::LookInto(const fs::path& folder, PruneSummary& summary) {
  std::error_code error;
  for (const platform::FolderEntry& entry : platform::ListFolder(folder, error)) {
    StopIfAsked();
    if (TextOf(entry.path.filename()).starts_with('.')) continue;
    if (entry.kind == fs::file_type::directory) LookInto(entry.path, summary);
    if (entry.kind == fs::file_type::regular) Look(entry.path, summary);
  }
  if (error) {
    throw PublishError(ShownPath(folder) + ": can't be read: " + platform::ErrorText(error));
  }
}

void Pruner::Keep(const PublishedList& list, const fs::path& file) {
  // As a list would that was emptied by mistake.
  if (list.files.Count() == 0) {
    throw PublishError(ShownPath(file) + ": names no file; name another list, or leave it out");
  }
  for (const FileRecord& record : list.files) {
    named_.insert(platform::NameKey(PayloadPlace(record)));
  }
}

// A path in the folder, or one that leads there from the working directory.
void Pruner::Spare(const fs::path& path) {
  const fs::path folder = platform::CanonicalPath(options_.output);
  for (const fs::path& place : {folder / path, platform::AbsolutePath(path)}) {
    const fs::path relative = platform::CanonicalPath(place).lexically_relative(folder);
    const bool isInside = !relative.empty() && *relative.begin() != "..";
    if (!isInside || !fs::exists(place)) continue;
    spared_.insert(relative.has_filename() ? relative : relative.parent_path());
    return;
  }
  throw PublishError("--spare " + ShownPath(path) + ": there is no such file or folder in " +
                     ShownPath(options_.output));
}

bool Pruner::IsSpared(const fs::path& path) const {
  for (fs::path place = path; !place.empty(); place = place.parent_path()) {
    if (spared_.contains(place)) return true;
  }
  return spared_.contains(".");
}

void Pruner::Look(const fs::path& file, PruneSummary& summary) {
  const fs::path place = file.lexically_relative(options_.output);
  const std::string key = platform::NameKey(place);
  const bool isOther = place == PathOf(options_.listName) || place == kRedirectionName;
  if (named_.contains(key)) {
    ++summary.kept;
  } else if (!recorded_.contains(key)) {
    summary.others += isOther ? 0 : 1;
  } else if (!isOther && !IsSpared(place)) {
    summary.needless.push_back({platform::ListTextOf(place), fs::file_size(file)});
    summary.bytes += summary.needless.back().size;
  }
}

void Pruner::StopIfAsked() const {
  if (options_.stop != nullptr && *options_.stop) {
    throw PublishError("stopped; what isn't removed yet stays");
  }
}

void Pruner::Delete(const PruneSummary& summary, const Staging& staging) {
  for (const NeedlessPayload& payload : summary.needless) {
    StopIfAsked();
    const fs::path place = platform::PathOfListText(payload.path);
    const fs::path file = options_.output / place;
    std::error_code error;
    platform::RemoveEntry(file, error);
    if (error)
      throw PublishError(ShownPath(file) + ": can't be removed: " + platform::ErrorText(error));
    recorded_.erase(KeyOf(payload.path));
    // The ones that aren't empty stay.
    fs::path folder = place.parent_path();
    for (; !error && !folder.empty(); folder = folder.parent_path()) {
      fs::remove(options_.output / folder, error);
    }
  }
  if (summary.needless.empty()) return;
  std::erase_if(record_.payloads,
                [this](const std::string& path) { return !recorded_.contains(KeyOf(path)); });
  const std::string text = record_.Text();
  NewFile file(staging.At(0));
  file.Write(text.data(), text.size());
  file.Commit();
  staging.Publish({{0, kPublicationRecord}});
}

}  // namespace

PruneSummary Prune(const PruneOptions& options) {
  if (!options.deletes) return Pruner(options).Find();
  // Before a Staging would recover it.
  static_cast<void>(ReadFinishedList(options.output, options.listName));
  const Staging staging(options.output);
  Pruner pruner(options);
  PruneSummary summary = pruner.Find();
  pruner.Delete(summary, staging);
  return summary;
}

}  // namespace velmora::publish
