#include "publish/build/new_publication.h"

#include <system_error>
#include <utility>

#include "publish/build/complaints.h"
#include "publish/build/new_file.h"
#include "publish/build/other_lists.h"
#include "publish/build/publication_record.h"
#include "publish/build/published_payload.h"
#include "publish/common/disk_text.h"
#include "publish/common/published_list.h"
#include "publish/common/redirection.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

void AddPayloadsOf(const std::vector<FileRecord>& records, PayloadPaths& paths) {
  for (const FileRecord& record : records) {
    if (!record.path.empty()) paths.insert(platform::ListTextOf(PayloadPlace(record)));
  }
}

// What the folder holds of earlier publications. Records of older versions don't tell, but the list
// does.
PayloadPaths EarlierPayloads(const fs::path& folder, const std::string& listName) {
  PayloadPaths paths = ReadPublicationRecord(folder).payloads;
  std::error_code ignored;
  if (!fs::is_regular_file(folder / PathOf(listName), ignored)) return paths;
  const auto list = ReadPublishedList(folder / PathOf(listName));
  if (list) AddPayloadsOf(RecordsOf(list->files), paths);
  return paths;
}

}  // namespace

void RequireRoom(const fs::path& output, const std::string& listName,
                 const std::vector<Placement>& placements) {
  const Replacement replacement(output / Staging::kFolder, output);
  const std::vector<fs::path> inTheWay = replacement.FilesInTheWay(placements);
  if (inTheWay.empty()) return;
  const PayloadPaths own = EarlierPayloads(output, listName);
  Complaints complaints;
  for (const fs::path& file : inTheWay) {
    if (own.contains(platform::ListTextOf(file))) continue;
    complaints.Add(ShownPath(output / file),
                   "is where a new file, or its folder, belongs, and no build has put it there",
                   "move it away, or build into another folder");
  }
  complaints.ThrowIfAny();
}

NewPublication::NewPublication(const Staging& staging, fs::path output, std::string listName,
                               std::size_t payloads)
    : staging_(staging),
      output_(std::move(output)),
      listName_(std::move(listName)),
      next_(payloads) {}

void NewPublication::AddPayload(std::size_t number, const FileRecord& record) {
  placements_.push_back({number, PayloadPlace(record)});
}

void NewPublication::AddRedirection(const std::string& text) { AddText(text, kRedirectionName); }

void NewPublication::Publish(const std::vector<FileRecord>& records, const std::string& settings,
                             const std::string& list) {
  PublicationRecord record{settings, EarlierPayloads(output_, listName_)};
  AddPayloadsOf(records, record.payloads);
  AddText(record.Text(), kPublicationRecord);
  AddText(list, PathOf(listName_));
  RequireRoom(output_, listName_, placements_);
  RequireOthersUnharmed(output_, listName_, records);
  staging_.Publish(placements_);
}

void NewPublication::AddText(const std::string& text, const fs::path& place) {
  NewFile file(staging_.At(next_));
  file.Write(text.data(), text.size());
  file.Commit();
  placements_.push_back({next_++, place});
}

}  // namespace velmora::publish
