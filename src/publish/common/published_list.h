// A reference list as patchers read it, for the commands that compare and check publications.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/record_set.h"

namespace velmora::publish {

// Taken in by the patcher's own parser, into the patcher's own sets.
struct PublishedList {
  explicit PublishedList(std::string_view text);

  FileRecordSet files;
  FileRecordSet removals;
  std::string clientExe;             // empty: patchers keep the name they know
  std::vector<std::string> refused;  // lines with a field over its limit
  // False if a line that is too long, or a NUL byte, ends the reading before the text ends.
  bool isReadWhole = true;
};

// A number of bytes in decimal digits, if patchers read it as what it is: at most 2,147,483,647.
[[nodiscard]] std::optional<std::int32_t> ListedSize(std::string_view digits);

// The whole file. Throws PublishError if it can't be read.
[[nodiscard]] std::string ReadWholeFile(const std::filesystem::path& path);

// The list's file, if `listOrFolder` is a publication's folder the one of name `listName` in it.
[[nodiscard]] std::filesystem::path ListFile(const std::filesystem::path& listOrFolder,
                                             const std::string& listName);

}  // namespace velmora::publish
