// The reference list: plain text lines that say which files must exist (FILE), what must go (DEL)
// and which program the game client is (EXE). Pure: text in, records out.
//
//   FILE : path, transfer hash, transfer size, content hash, content size
//   DEL : path, mode
//   EXE : name
//
// The colon stands between white space, each comma directly behind its field; white space behind a
// comma is skipped, blanks in front of it belong to the field. A field needs at least one byte: the
// first one that has none, or that no comma follows, ends the line's fields, and all behind it are
// empty. The fifth field also ends at a blank. Other keywords, and lines without one, mean nothing.
// A path that holds ".compressed" is cut off there and marks its record as compressed.
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

// Whether every field that counts for the line's keyword keeps to its limit: of FILE all, of DEL
// path and mode, of EXE the name.
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
