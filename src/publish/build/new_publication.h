// The files of a publication, on their way to their places in its folder.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/build/replacement.h"
#include "publish/build/staging.h"

namespace velmora::publish {

// Where a file has become a folder, or a folder a file, earlier payloads have to make room, whether
// the folder's list still names them or not. Nothing else does, since it may be anybody's: throws
// PublishError, with all that is in the way.
void RequireRoom(const std::filesystem::path& output, const std::string& listName,
                 const std::vector<Placement>& placements);

class NewPublication {
 public:
  // Payloads wait in `staging` under the numbers below `payloads`.
  NewPublication(const Staging& staging, std::filesystem::path output, std::string listName,
                 std::size_t payloads);

  // The payload of this number is new.
  void AddPayload(std::size_t number, const FileRecord& record);
  void AddRedirection(const std::string& text);

  // Moves all to their places, the list last, as Replacement::Run does, if there is room. `records`
  // are all of the list's, whose payloads are recorded, as are those that were published there
  // before.
  void Publish(const std::vector<FileRecord>& records, const std::string& settings,
               const std::string& list);

 private:
  void AddText(const std::string& text, const std::filesystem::path& place);

  const Staging& staging_;
  std::filesystem::path output_;
  std::string listName_;
  std::size_t next_;  // number for a text
  std::vector<Placement> placements_;
};

}  // namespace velmora::publish
