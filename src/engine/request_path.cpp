#include "engine/request_path.h"

#include <algorithm>

#include "engine/reference_list.h"
#include "platform/url.h"

namespace velmora {
namespace {

std::optional<std::string> CanonicalPath(const std::string& path) {
  std::string slashPath = path;
  std::replace(slashPath.begin(), slashPath.end(), '\\', '/');
  const auto escaped =
      platform::CanonicalizeUrlPath(slashPath, platform::Canonicalize::kUnsafe, kRequestPathBuffer);
  if (!escaped) return std::nullopt;
  return platform::CanonicalizeUrlPath(*escaped, platform::Canonicalize::kSpacesOnly,
                                       kRequestPathBuffer);
}

}  // namespace

std::optional<std::string> RequestPath(const std::string& dataPath, const FileRecord& record) {
  const auto canonical = CanonicalPath(record.path);
  if (!canonical) return std::nullopt;
  std::string path = dataPath + "/" + *canonical;
  if (record.compressed) path += kCompressedMark;
  if (path.size() >= kRequestPathBuffer) return std::nullopt;
  return path;
}

}  // namespace velmora
