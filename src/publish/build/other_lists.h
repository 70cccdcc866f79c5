// Several publications may share the payloads of one folder, each with a list of its own name.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "publish/common/published_list.h"

namespace velmora::publish {

// The lists in `folder`, by their files, besides the one of this name: what begins as a list does,
// names a file, and isn't a payload. Throws PublishError if one can't be read.
[[nodiscard]] std::map<std::filesystem::path, std::unique_ptr<const PublishedList>> OtherLists(
    const std::filesystem::path& folder, const std::string& listName);

// Throws PublishError, with all of them, for payloads of `records` that would take the places of
// others which another list in `folder` names.
void RequireOthersUnharmed(const std::filesystem::path& folder, const std::string& listName,
                           const std::vector<FileRecord>& records);

}  // namespace velmora::publish
