#include "publish/build/prune.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

#include "engine/reference_list.h"
#include "publish/build/finished_publication.h"
#include "publish/build/new_file.h"
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

// Whether the file begins as a list does.
bool LooksLikeAList(const fs::path& file) {
  std::array<char, 4 * kMaxListLine> bytes{};
  std::ifstream stream(file, std::ios::binary);
  stream.read(bytes.data(), bytes.size());
  const PublishedList list({bytes.data(), static_cast<std::size_t>(stream.gcount())});
  return list.files.Count() + list.removals.Count() > 0;
}

class Pruner {
 public:
  explicit Pruner(const PruneOptions& options)
      : options_(options), record_(ReadPublicationRecord(options.output)) {}

  PruneSummary Find();
  void Delete(const PruneSummary& summary, const Staging& staging);

 private:
  void Keep(const PublishedList& list, const fs::path& file);
  void KeepListsInFolder();
  void Spare(const fs::path& path);
  [[nodiscard]] bool IsSpared(const fs::path& path) const;
  void Look(const fs::directory_entry& entry, PruneSummary& summary);
  void StopIfAsked() const;

  const PruneOptions& options_;
  PublicationRecord record_;
  PayloadPaths named_;         // by lists
  std::set<fs::path> spared_;  // relative to the folder, like all others
};

PruneSummary Pruner::Find() {
  Keep(*ReadFinishedList(options_.output, options_.listName), options_.output / options_.listName);
  for (const fs::path& place : options_.keep) {
    const fs::path file = ListFile(place, options_.listName);
    const auto list = ReadPublishedList(file);
    if (list == nullptr) {
      throw PublishError(ShownPath(file.native()) +
                         ": not a list that patchers read to its end, so it isn't known what it "
                         "keeps; name another one, or leave it out");
    }
    Keep(*list, file);
  }
  KeepListsInFolder();
  for (const fs::path& path : options_.spare) Spare(path);

  PruneSummary summary;
  std::error_code error;
  fs::recursive_directory_iterator at(options_.output, error);
  for (; !error && at != fs::end(at); at.increment(error)) {
    StopIfAsked();
    if (at->path().filename().native().starts_with('.')) {
      at.disable_recursion_pending();
    } else {
      Look(*at, summary);
    }
  }
  if (error) {
    throw PublishError(ShownPath(options_.output.native()) + ": can't be read: " + error.message());
  }
  std::sort(summary.needless.begin(), summary.needless.end(),
            [](const auto& a, const auto& b) { return a.path < b.path; });
  return summary;
}

void Pruner::Keep(const PublishedList& list, const fs::path& file) {
  // As a list would that was emptied by mistake.
  if (list.files.Count() == 0) {
    throw PublishError(ShownPath(file.native()) +
                       ": names no file; name another list, or leave it out");
  }
  for (const FileRecord& record : list.files) {
    named_.insert(PayloadPlace(record).generic_string());
  }
}

// Several publications may share the payloads of one folder, each with a list of its own name.
void Pruner::KeepListsInFolder() {
  for (const fs::directory_entry& entry : fs::directory_iterator(options_.output)) {
    const bool isPayload = record_.payloads.contains(entry.path().filename().native());
    if (isPayload || !entry.is_regular_file() || !LooksLikeAList(entry.path())) continue;
    const PublishedList list(ReadWholeFile(entry.path()));
    if (list.files.Count() > 0) Keep(list, entry.path());
  }
}

// A path in the folder, or one that leads there from the working directory.
void Pruner::Spare(const fs::path& path) {
  const fs::path folder = fs::canonical(options_.output);
  for (const fs::path& place : {folder / path, fs::absolute(path)}) {
    const fs::path relative = fs::weakly_canonical(place).lexically_relative(folder);
    const bool isInside = !relative.empty() && *relative.begin() != "..";
    if (!isInside || !fs::exists(place)) continue;
    spared_.insert(relative.has_filename() ? relative : relative.parent_path());
    return;
  }
  throw PublishError("--spare " + ShownPath(path.native()) +
                     ": there is no such file or folder in " + ShownPath(options_.output.native()));
}

bool Pruner::IsSpared(const fs::path& path) const {
  for (fs::path place = path; !place.empty(); place = place.parent_path()) {
    if (spared_.contains(place)) return true;
  }
  return spared_.contains(".");
}

void Pruner::Look(const fs::directory_entry& entry, PruneSummary& summary) {
  if (entry.is_symlink() || !entry.is_regular_file()) return;
  const fs::path place = entry.path().lexically_relative(options_.output);
  const std::string path = place.generic_string();
  if (named_.contains(path)) {
    ++summary.kept;
  } else if (!record_.payloads.contains(path)) {
    summary.others += path == options_.listName || path == kRedirectionName ? 0 : 1;
  } else if (path != options_.listName && path != kRedirectionName && !IsSpared(place)) {
    summary.needless.push_back({path, entry.file_size()});
    summary.bytes += entry.file_size();
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
    const fs::path file = options_.output / payload.path;
    std::error_code error;
    fs::remove(file, error);
    if (error)
      throw PublishError(ShownPath(file.native()) + ": can't be removed: " + error.message());
    record_.payloads.erase(payload.path);
    // The ones that aren't empty stay.
    fs::path folder = fs::path(payload.path).parent_path();
    for (; !error && !folder.empty(); folder = folder.parent_path()) {
      fs::remove(options_.output / folder, error);
    }
  }
  if (summary.needless.empty()) return;
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
