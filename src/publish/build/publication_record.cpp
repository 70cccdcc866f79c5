#include "publish/build/publication_record.h"

#include <algorithm>
#include <sstream>
#include <system_error>

#include "base/text.h"
#include "publish/build/zlib_blocks.h"
#include "publish/common/file_digest.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPayload = "payload ";

std::string CompressionText(const PayloadOptions& options) {
  if (options.compress == Compress::kAlways) return "always";
  if (options.compress == Compress::kNever) return "never";
  std::string text = "pays from " + std::to_string(options.paysFrom) + " but";
  for (const std::string& type : options.plainTypes) text += ' ' + type;
  return text;
}

bool ReadHash(const std::string& value, PayloadOptions& options) {
  options.hash = value == "md5" ? HashKind::kMd5 : HashKind::kSha1;
  return value == "md5" || value == "sha1";
}

// A record of an earlier version names no effort.
void ReadEffort(const std::string& value, PayloadOptions& options) {
  const int effort = ToNumber(value);
  if (effort >= kLeastEffort && effort <= kMostEffort) options.effort = effort;
}

// "always", "never", or "pays", behind which `words` holds "from 5 but 7z aac".
bool ReadCompression(const std::string& value, std::istream& words, PayloadOptions& options) {
  options.compress = value == "always"  ? Compress::kAlways
                     : value == "never" ? Compress::kNever
                                        : Compress::kPays;
  if (options.compress != Compress::kPays) return true;
  std::string from;
  std::string but;
  words >> from >> options.paysFrom >> but;
  if (value != "pays" || from != "from" || but != "but") return false;
  options.plainTypes.clear();
  for (std::string type; words >> type;) options.plainTypes.insert(type);
  return true;
}

std::string_view TakeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

}  // namespace

std::string SettingsText(const PayloadOptions& options, std::string_view list) {
  FileDigest digest(options.hash);
  digest.Add(list.data(), list.size());
  return std::string("velmora-publish 1\n") + "hash " +
         (options.hash == HashKind::kMd5 ? "md5" : "sha1") + "\ncompress " +
         CompressionText(options) + "\neffort " + std::to_string(options.effort) + "\n" +
         StreamMaker() + "\nlist " + digest.Text() + "\n";
}

std::string PublicationRecord::Text() const {
  std::string text = settings;
  for (const std::string& path : payloads) {
    text += kPayload;
    text += path + '\n';
  }
  return text;
}

PublicationRecord ReadPublicationRecord(const fs::path& folder) {
  const fs::path file = folder / kPublicationRecord;
  std::error_code ignored;
  if (!fs::is_regular_file(file, ignored)) return {};
  PublicationRecord record;
  try {
    const std::string text = ReadWholeFile(file);
    for (std::string_view rest = text; !rest.empty();) {
      const std::string_view line = TakeLine(rest);
      if (line.starts_with(kPayload)) {
        record.payloads.emplace(line.substr(kPayload.size()));
      } else {
        record.settings.append(line) += '\n';
      }
    }
  } catch (const PublishError&) {
    return {};
  }
  return record;
}

std::optional<PayloadOptions> ReadSettings(const fs::path& folder) {
  std::istringstream lines(ReadPublicationRecord(folder).settings);
  PayloadOptions options;
  bool hasHash = false;
  bool hasCompression = false;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string key;
    std::string value;
    words >> key >> value;
    if (key == "hash") hasHash = ReadHash(value, options);
    if (key == "effort") ReadEffort(value, options);
    if (key == "compress") hasCompression = ReadCompression(value, words, options);
  }
  return hasHash && hasCompression ? std::optional(options) : std::nullopt;
}

}  // namespace velmora::publish
