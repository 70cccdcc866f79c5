#include "engine/verify_cache.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "base/text.h"
#include "base/text_mode.h"
#include "platform/files.h"

namespace velmora {

VerifiedRecords VerifyCache;

const PackedRecord* VerifiedRecords::Copy(const FileRecord& record) {
  return PackedRecord::Pack(memory_.Take(PackedRecord::PackedSize(record)), record);
}

const PackedRecord* VerifiedRecords::Find(std::string_view path) const {
  const auto found = entries_.find(path);
  return found == entries_.end() ? nullptr : found->second;
}

// Records usually arrive in their order, those of a file always, so the end is tried first.
VerifiedRecords::Place VerifiedRecords::Search(std::string_view path) {
  if (entries_.empty() || entries_.rbegin()->first < path) return {entries_.end(), false};
  const auto at = entries_.lower_bound(path);
  return {at, at != entries_.end() && at->first == path};
}

void VerifiedRecords::Insert(const Place& place, const FileRecord& record) {
  const PackedRecord* const entry = Copy(record);
  entries_.emplace_hint(place.at, entry->path(), entry);
}

void VerifiedRecords::TryInsert(const FileRecord& record) {
  const Place place = Search(record.path);
  if (!place.isTaken) Insert(place, record);
}

void VerifiedRecords::InsertOrAssign(const FileRecord& record) {
  const Place place = Search(record.path);
  if (!place.isTaken) {
    Insert(place, record);
  } else if (!place.at->second->HasFieldsOf(record)) {
    place.at->second = Copy(record);
  }
}

void VerifiedRecords::Clear() {
  entries_.clear();
  memory_.Clear();
}

namespace {

using Tokens = std::array<std::string_view, 6>;

std::string_view TakeToken(std::string_view& rest) {
  const auto isWhite = [](char c) { return IsWhiteSpace(c); };
  const auto* start = std::find_if_not(rest.begin(), rest.end(), isWhite);
  const auto* end = std::find_if(start, rest.end(), isWhite);
  rest.remove_prefix(static_cast<std::size_t>(end - rest.begin()));
  return {start, end};
}

Tokens ScanCacheLine(std::string_view line) {
  line = line.substr(0, line.find('\0'));
  Tokens tokens;
  for (std::string_view& token : tokens) token = TakeToken(line);
  return tokens;
}

bool IsWithinLimits(const Tokens& tokens) {
  static constexpr std::array<std::size_t, 6> kLimits = {259, 63, 31, 63, 31, 2};
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    if (tokens[i].size() > kLimits[i]) return false;
  }
  return true;
}

void AddEntry(const Tokens& tokens) {
  VerifyCache.TryInsert({.path = std::string(tokens[0]),
                         .transferHash = std::string(tokens[1]),
                         .transferSize = std::string(tokens[2]),
                         .contentHash = std::string(tokens[3]),
                         .contentSize = std::string(tokens[4]),
                         .compressed = ToNumber(tokens[5]) != 0});
}

std::string LineOf(std::string_view path, std::string_view transferHash,
                   std::string_view transferSize, std::string_view contentHash,
                   std::string_view contentSize, bool compressed) {
  std::string line;
  line.reserve(kMaxCacheLine);
  line += path;
  for (const std::string_view field : {transferHash, transferSize, contentHash, contentSize}) {
    line += ' ';
    line += field;
  }
  line += compressed ? " 1\n" : " 0\n";
  return line;
}

std::string LineOf(const PackedRecord& record) {
  return LineOf(record.path(), record.transferHash(), record.transferSize(), record.contentHash(),
                record.contentSize(), record.compressed());
}

// False after a line that is too long.
bool AddEntries(std::string_view lines) {
  while (!lines.empty()) {
    const std::string_view line = TakeTextLine(lines);
    if (line.size() > kMaxCacheLine) return false;
    const Tokens tokens = ScanCacheLine(line);
    if (!tokens[0].empty() && IsWithinLimits(tokens)) AddEntry(tokens);
  }
  return true;
}

}  // namespace

std::string CacheLine(const FileRecord& record) {
  return LineOf(record.path, record.transferHash, record.transferSize, record.contentHash,
                record.contentSize, record.compressed);
}

// Reads chunks. Each begins with the line that the one before has left incomplete.
void LoadVerifyCache() {
  constexpr std::size_t kChunk = std::size_t{1} << 16;
  platform::InputFile file(kCacheFile);
  std::string text(kChunk, '\0');
  std::size_t left = 0;
  for (bool isOpen = file.IsOpen(); isOpen;) {
    const auto room = static_cast<std::uint32_t>(text.size() - left);
    const std::uint32_t count = file.Read(text.data() + left, room);
    const std::string_view read(text.data(), left + count);
    const std::string_view bytes = UpToEndOfText(read);
    const bool isLast = count == 0 || bytes.size() < read.size();
    const std::size_t whole = isLast ? bytes.size() : bytes.rfind('\n') + 1;
    left = bytes.size() - whole;
    isOpen = AddEntries(bytes.substr(0, whole)) && !isLast && left <= kMaxCacheLine + 1;
    text.replace(0, left, text, whole, left);
  }
}

void SaveVerifyCache() {
  if (VerifyCache.Count() == 0) return;
  {
    platform::OutputFile file(kCacheFile, platform::OutputFile::Mode::kReplace);
    bool writing = file.IsOpen();
    for (const auto& [path, record] : VerifyCache) {
      if (!writing) break;
      const std::string line = EncodeTextMode(LineOf(*record));
      writing = file.Write(line.data(), line.size());
    }
  }
  VerifyCache.Clear();
}

bool IsVerifiedUnchanged(const FileRecord& record) {
  const PackedRecord* entry = VerifyCache.Find(record.path);
  return entry != nullptr && entry->HasFieldsOf(record);
}

void RememberVerified(const FileRecord& record) { VerifyCache.InsertOrAssign(record); }

bool HasVerifiedEntry(const std::string& path) { return VerifyCache.Find(path) != nullptr; }

void DistrustFile(const std::string& path) {
  if (!HasVerifiedEntry(path)) return;
  FileRecord unlike;
  unlike.path = path;
  unlike.transferHash = "?";
  VerifyCache.InsertOrAssign(unlike);
}

bool SetCacheFileAside() {
  if (!platform::FileExists(kCacheFile)) return true;
  if (!platform::MoveFileOver(kCacheFile, kCacheFileAside)) return false;
  if (platform::FlushFolders({""})) return true;
  static_cast<void>(BringCacheFileBack());
  return false;
}

bool BringCacheFileBack() {
  return !platform::FileExists(kCacheFileAside) ||
         platform::MoveFileOver(kCacheFileAside, kCacheFile);
}

void DiscardCacheFileAside() { static_cast<void>(platform::RemoveFile(kCacheFileAside)); }

}  // namespace velmora
