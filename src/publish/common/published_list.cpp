#include "publish/common/published_list.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <system_error>

#include "base/text.h"
#include "engine/reference_list.h"
#include "engine/verify_cache.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {

namespace fs = std::filesystem;

PublishedList::PublishedList(std::string_view text) {
  const std::string_view unread =
      ParseReferenceList(text, files, removals, clientExe,
                         [this](std::string_view line) { refused.emplace_back(line); });
  isReadWhole = unread.empty();
}

std::vector<FileRecord> RecordsOf(const FileRecordSet& set) {
  std::vector<FileRecord> records;
  records.reserve(set.Count());
  for (const FileRecord& record : set) records.push_back(record);
  return records;
}

std::unique_ptr<const PublishedList> ReadPublishedList(const fs::path& file) {
  const std::string text = ReadWholeFile(file);
  auto list = std::make_unique<const PublishedList>(text);
  const bool isList = text.empty() || list->files.Count() + list->removals.Count() > 0;
  if (!isList || !list->isReadWhole || !list->refused.empty()) return nullptr;
  return list;
}

std::optional<HashKind> ListedHash(std::string_view hash) {
  const bool isHexadecimal = std::all_of(hash.begin(), hash.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
  });
  if (isHexadecimal && hash.size() == 40) return HashKind::kSha1;
  if (isHexadecimal && hash.size() == 32) return HashKind::kMd5;
  return std::nullopt;
}

std::optional<std::int32_t> ListedSize(std::string_view digits) {
  const bool isPlain = !digits.empty() && std::all_of(digits.begin(), digits.end(),
                                                      [](char c) { return c >= '0' && c <= '9'; });
  if (!isPlain) return std::nullopt;
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  constexpr std::string_view kLargest = "2147483647";
  const bool fits =
      digits.size() < kLargest.size() || (digits.size() == kLargest.size() && digits <= kLargest);
  if (!fits) return std::nullopt;
  return ToNumber(digits);
}

std::uint64_t ByteCount(std::string_view size) {
  return static_cast<std::uint64_t>(std::max(ToNumber(size), 0));
}

bool EndsCache(const FileRecord& record) {
  const std::size_t length = CacheLine(record).size() - 1;  // without its line feed
  return length > kMaxCacheLine;
}

std::string ReadWholeFile(const fs::path& path) {
  platform::ClearStreamError();
  std::ifstream stream(path, std::ios::binary);
  std::string bytes;
  std::error_code error;
  if (fs::is_directory(path)) {
    error = std::make_error_code(std::errc::is_a_directory);
  } else {
    bytes.assign(std::istreambuf_iterator<char>(stream), {});
    if (!stream.is_open() || stream.bad()) error = platform::StreamError();
  }
  if (error) {
    throw PublishError(ShownPath(path) + ": can't be read: " + platform::ErrorText(error));
  }
  return bytes;
}

fs::path ListFile(const fs::path& listOrFolder, const std::string& listName) {
  return fs::is_directory(listOrFolder) ? listOrFolder / PathOf(listName) : listOrFolder;
}

}  // namespace velmora::publish
