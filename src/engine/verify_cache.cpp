#include "engine/verify_cache.h"

#include <array>
#include <string_view>

#include "base/data_block.h"
#include "base/text.h"
#include "base/text_mode.h"
#include "platform/files.h"

namespace velmora {

std::map<std::string, FileRecord> VerifyCache;

namespace {

using Tokens = std::array<std::string_view, 6>;

std::string_view TakeToken(std::string_view& rest) {
  std::size_t start = 0;
  while (start < rest.size() && IsWhiteSpace(rest[start])) ++start;
  std::size_t end = start;
  while (end < rest.size() && !IsWhiteSpace(rest[end])) ++end;
  const std::string_view token = rest.substr(start, end - start);
  rest.remove_prefix(end);
  return token;
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
  VerifyCache.try_emplace(std::string(tokens[0]),
                          FileRecord{.path = std::string(tokens[0]),
                                     .transferHash = std::string(tokens[1]),
                                     .transferSize = std::string(tokens[2]),
                                     .contentHash = std::string(tokens[3]),
                                     .contentSize = std::string(tokens[4]),
                                     .compressed = ToNumber(tokens[5]) != 0});
}

void AddEntries(std::string_view bytes) {
  std::string_view rest = UpToEndOfText(bytes);
  while (!rest.empty()) {
    const std::string_view line = TakeTextLine(rest);
    if (line.size() > kMaxCacheLine) return;
    const Tokens tokens = ScanCacheLine(line);
    if (!tokens[0].empty() && IsWithinLimits(tokens)) AddEntry(tokens);
  }
}

}  // namespace

std::string CacheLine(const FileRecord& record) {
  std::string line = record.path;
  for (const std::string* field :
       {&record.transferHash, &record.transferSize, &record.contentHash, &record.contentSize}) {
    line += ' ';
    line += *field;
  }
  line += record.compressed ? " 1\n" : " 0\n";
  return line;
}

void LoadVerifyCache() {
  platform::InputFile file(kCacheFile);
  if (!file.IsOpen()) return;
  DataBlock bytes;
  if (!bytes.Allocate(file.Size())) return;
  const std::uint32_t count = file.Read(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  AddEntries({reinterpret_cast<const char*>(bytes.data()), count});
}

void SaveVerifyCache() {
  if (VerifyCache.empty()) return;
  {
    platform::OutputFile file(kCacheFile, platform::OutputFile::Mode::kReplace);
    bool writing = file.IsOpen();
    for (const auto& [path, record] : VerifyCache) {
      if (!writing) break;
      const std::string line = EncodeTextMode(CacheLine(record));
      writing = file.Write(line.data(), line.size());
    }
  }
  VerifyCache.clear();
}

bool IsVerifiedUnchanged(const FileRecord& record) {
  const auto found = VerifyCache.find(record.path);
  if (found == VerifyCache.end()) return false;
  const FileRecord& entry = found->second;
  return entry.compressed == record.compressed && entry.transferHash == record.transferHash &&
         entry.transferSize == record.transferSize && entry.contentHash == record.contentHash &&
         entry.contentSize == record.contentSize;
}

void RememberVerified(const FileRecord& record) { VerifyCache[record.path] = record; }

void ForgetVerified(const FileRecord& record) { VerifyCache.erase(record.path); }

}  // namespace velmora
