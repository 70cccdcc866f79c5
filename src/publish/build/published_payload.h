// The payloads in the folder of a publication.
//
// The tool never changes a payload: it writes new files and moves them to their places. So one file
// can serve several publications, under several names.
#pragma once

#include <filesystem>
#include <functional>

#include "engine/file_record.h"

namespace velmora::publish {

// The path of a record's payload, relative to its publication's folder.
[[nodiscard]] std::filesystem::path PayloadPlace(const FileRecord& record);

// Whether `file` is a plain file of the size that the record gives for its payload.
[[nodiscard]] bool HasSizeOfPayload(const std::filesystem::path& file, const FileRecord& record);

// Whether `file` is the record's payload; reads it if its size is right. `checkStop` is called now
// and then and may throw to stop.
[[nodiscard]] bool IsPayload(const std::filesystem::path& file, const FileRecord& record,
                             const std::function<void()>& checkStop);

// Gives the file `from` the name `to` as well, or copies it there where that isn't possible. `to`
// must not exist; after a failure it may.
[[nodiscard]] bool LinkOrCopy(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace velmora::publish
