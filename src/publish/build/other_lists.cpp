#include "publish/build/other_lists.h"

#include <array>
#include <fstream>
#include <set>
#include <system_error>

#include "engine/reference_list.h"
#include "platform/disk.h"
#include "publish/build/complaints.h"
#include "publish/build/publication_record.h"
#include "publish/build/published_payload.h"
#include "publish/common/disk_text.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

bool LooksLikeAList(const fs::path& file) {
  std::array<char, 4 * kMaxListLine> bytes{};
  std::ifstream stream(file, std::ios::binary);
  stream.read(bytes.data(), bytes.size());
  const PublishedList list({bytes.data(), static_cast<std::size_t>(stream.gcount())});
  return list.files.Count() + list.removals.Count() > 0;
}

}  // namespace

std::map<fs::path, std::unique_ptr<const PublishedList>> OtherLists(const fs::path& folder,
                                                                    const std::string& listName) {
  std::set<std::string> known = {platform::NameKey(PathOf(listName))};
  const PublicationRecord record = ReadPublicationRecord(folder);
  for (const std::string& payload : record.payloads) {
    known.insert(platform::NameKey(platform::PathOfListText(payload)));
  }
  std::map<fs::path, std::unique_ptr<const PublishedList>> lists;
  std::error_code ignored;
  for (const auto& [path, kind] : platform::ListFolder(folder, ignored)) {
    const bool isKnown = known.contains(platform::NameKey(path.filename()));
    if (isKnown || !fs::is_regular_file(path) || !LooksLikeAList(path)) continue;
    auto list = std::make_unique<const PublishedList>(ReadWholeFile(path));
    if (list->files.Count() > 0) lists.emplace(path, std::move(list));
  }
  return lists;
}

void RequireOthersUnharmed(const fs::path& folder, const std::string& listName,
                           const std::vector<FileRecord>& records) {
  const auto lists = OtherLists(folder, listName);
  if (lists.empty()) return;
  std::map<std::string, const FileRecord*> places;
  for (const FileRecord& record : records) {
    places.emplace(platform::NameKey(PayloadPlace(record)), &record);
  }
  Complaints complaints;
  for (const auto& [file, list] : lists) {
    for (const FileRecord& record : list->files) {
      const auto found = places.find(platform::NameKey(PayloadPlace(record)));
      if (found == places.end() || found->second->transferHash == record.transferHash) continue;
      complaints.Add(
          ShownPath(folder / PayloadPlace(record)),
          "another list needs it as it is: " + ShownPath(file.filename()),
          "move that list away if no player asks for it, or publish each into a folder of "
          "its own; --reuse shares payloads");
    }
  }
  complaints.ThrowIfAny();
}

}  // namespace velmora::publish
