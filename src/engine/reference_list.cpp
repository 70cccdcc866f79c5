#include "engine/reference_list.h"

#include <algorithm>

#include "base/text.h"

namespace velmora {
namespace {

void SkipWhiteSpace(std::string_view& rest) {
  while (!rest.empty() && IsWhiteSpace(rest.front())) rest.remove_prefix(1);
}

bool Skip(std::string_view& rest, char c) {
  if (rest.empty() || rest.front() != c) return false;
  rest.remove_prefix(1);
  return true;
}

std::string_view TakeWord(std::string_view& rest) {
  std::size_t length = 0;
  while (length < rest.size() && !IsWhiteSpace(rest[length])) ++length;
  const std::string_view word = rest.substr(0, length);
  rest.remove_prefix(length);
  return word;
}

// A field ends at a comma or at the end of the line, the last one also at a space.
std::string_view TakeField(std::string_view& rest, bool isLast) {
  const auto ends = [isLast](char c) {
    return c == ',' || c == '\r' || c == '\n' || (isLast && c == ' ');
  };
  const auto end = std::find_if(rest.begin(), rest.end(), ends);
  const std::string_view field = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
  rest.remove_prefix(field.size());
  return field;
}

}  // namespace

ListLine ScanListLine(std::string_view line) {
  ListLine result;
  SkipWhiteSpace(line);
  result.keyword = TakeWord(line);
  SkipWhiteSpace(line);
  if (!Skip(line, ':')) return result;
  for (std::size_t i = 0; i < result.fields.size(); ++i) {
    SkipWhiteSpace(line);
    const bool isLast = i + 1 == result.fields.size();
    result.fields[i] = TakeField(line, isLast);
    if (result.fields[i].empty() || isLast || !Skip(line, ',')) break;
  }
  return result;
}

bool IsWithinLimits(const ListLine& line) {
  static constexpr std::array<std::size_t, 5> kLimits = {kMaxListPath, kMaxListHash, kMaxListSize,
                                                         kMaxListHash, kMaxListSize};
  const std::size_t counting = line.keyword == "FILE" ? 5 : line.keyword == "DEL" ? 2 : 1;
  for (std::size_t i = 0; i < counting; ++i) {
    if (line.fields[i].size() > kLimits[i]) return false;
  }
  return true;
}

FileRecord UpdateRecord(const ListLine& line) {
  const std::string_view path = line.fields[0];
  const std::size_t mark = path.find(kCompressedMark);
  return {.path = std::string(path.substr(0, mark)),
          .transferHash = std::string(line.fields[1]),
          .transferSize = std::string(line.fields[2]),
          .contentHash = std::string(line.fields[3]),
          .contentSize = std::string(line.fields[4]),
          .compressed = mark != std::string_view::npos};
}

FileRecord RemoveRecord(const ListLine& line) {
  FileRecord record;
  record.path = line.fields[0];
  record.transferHash = line.fields[1];
  return record;
}

std::string_view ForEachListLine(std::string_view text, const LineHandler& take) {
  const std::size_t end = std::min(text.find('\0'), text.size());
  std::size_t at = 0;
  while (at < end) {
    const std::size_t lineEnd = std::min(text.find('\n', at), end);
    if (lineEnd - at > kMaxListLine) break;
    take(text.substr(at, lineEnd - at));
    at = std::min(lineEnd + 1, end);
  }
  return text.substr(at);
}

std::string_view ParseReferenceList(std::string_view text, FileRecordSet& updateSet,
                                    FileRecordSet& removeSet, std::string& clientExe,
                                    const LineHandler& refused) {
  return ForEachListLine(text, [&](std::string_view line) {
    const ListLine scanned = ScanListLine(line);
    const bool isFile = scanned.keyword == "FILE";
    const bool isRemoval = scanned.keyword == "DEL";
    const bool isClient = scanned.keyword == "EXE";
    if (!isFile && !isRemoval && !isClient) return;

    if (!IsWithinLimits(scanned)) {
      refused(line);
    } else if (isFile) {
      updateSet.InsertRecord(UpdateRecord(scanned));
    } else if (isRemoval) {
      removeSet.InsertRecord(RemoveRecord(scanned));
    } else {
      clientExe = scanned.fields[0];
    }
  });
}

}  // namespace velmora
