// A reference list as patchers read it, for the commands that compare and check publications.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/record_set.h"
#include "publish/common/file_digest.h"

namespace velmora::publish {

// Parsed by the patcher's own parser, into its own sets.
struct PublishedList {
  explicit PublishedList(std::string_view text);

  FileRecordSet files;
  FileRecordSet removals;
  std::string clientExe;             // empty: patchers keep the name they know
  std::vector<std::string> refused;  // lines with a field over its limit
  // False if a NUL byte, or a line over its limit, ends the reading before the end of the text.
  bool isReadWhole = true;
};

// In their order.
[[nodiscard]] std::vector<FileRecord> RecordsOf(const FileRecordSet& set);

// The list of a file. Null if it isn't a list, or not one that patchers read to its end. Throws
// PublishError if the file can't be read.
[[nodiscard]] std::unique_ptr<const PublishedList> ReadPublishedList(
    const std::filesystem::path& file);

// The kind of a hash text, which has 40 or 32 upper-case hexadecimal digits. Nothing for any other
// text: it never equals one that a patcher computes.
[[nodiscard]] std::optional<HashKind> ListedHash(std::string_view hash);

// A size in decimal digits, if patchers read it as what it says: at most 2,147,483,647.
[[nodiscard]] std::optional<std::int32_t> ListedSize(std::string_view digits);

// The number of bytes that patchers read from any text of a size field; 0 if it is negative.
[[nodiscard]] std::uint64_t ByteCount(std::string_view size);

// Whether patchers can't read their cache beyond the line of this record.
[[nodiscard]] bool EndsCache(const FileRecord& record);

// The whole file. Throws PublishError if it can't be read.
[[nodiscard]] std::string ReadWholeFile(const std::filesystem::path& path);

// The list's file: `listOrFolder` itself, or the file `listName` in it if it is a folder.
[[nodiscard]] std::filesystem::path ListFile(const std::filesystem::path& listOrFolder,
                                             const std::string& listName);

}  // namespace velmora::publish
