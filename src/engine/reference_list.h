// The reference list: plain text lines that say which files must exist (FILE), what to remove (DEL)
// and which program is the game client (EXE). Pure: text in, records out.
//
//   FILE : path, transfer hash, transfer size, content hash, content size
//   DEL : path, mode
//   EXE : name
//
// White space separates the keyword from the colon. White space after the colon and after a comma
// is skipped; spaces before a comma belong to the field. A field has at least one byte: after the
// first one that is empty, or isn't followed by a comma, all fields are empty. The fifth field also
// ends at a space. Lines without a keyword, or with any other, are ignored. A path that contains
// ".compressed" is cut off there, and its record is marked as compressed.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "engine/record_set.h"

namespace velmora {

// Limits in bytes. A line over its limit ends the reading of the list. A line with a field over its
// limit is refused: cut short, the field would name another file.
inline constexpr std::size_t kMaxListLine = 511;
inline constexpr std::size_t kMaxListPath = 259;
inline constexpr std::size_t kMaxListHash = 40;
inline constexpr std::size_t kMaxListSize = 31;

inline constexpr std::string_view kCompressedMark = ".compressed";

struct ListLine {
  std::string_view keyword;
  std::array<std::string_view, 5> fields;  // path, hash or mode, size, hash, size
};

// Splits one line, given without its line feed. The views point into `line`.
[[nodiscard]] ListLine ScanListLine(std::string_view line);

// Whether no field exceeds its limit. All fields of FILE count, path and mode of DEL, the name of
// EXE.
[[nodiscard]] bool IsWithinLimits(const ListLine& line);

// The record of a FILE line and of a DEL line.
[[nodiscard]] FileRecord UpdateRecord(const ListLine& line);
[[nodiscard]] FileRecord RemoveRecord(const ListLine& line);

using LineHandler = std::function<void(std::string_view line)>;

// Calls `take` for each line that the patcher reads, without its line feed. The reading ends at the
// first NUL byte, and before a line over its limit. Returns the rest of the text from there on,
// which is empty if all of it was read.
std::string_view ForEachListLine(std::string_view text, const LineHandler& take);

// Inserts the records of the lines of `text` into the sets, and puts the name of the last EXE line
// into `clientExe`, which stays as it is if there is none. Calls `refused` for each line that is
// refused. Returns the part of the text that isn't read, as ForEachListLine does.
std::string_view ParseReferenceList(std::string_view text, FileRecordSet& updateSet,
                                    FileRecordSet& removeSet, std::string& clientExe,
                                    const LineHandler& refused);

}  // namespace velmora
