#include "publish/source_tree.h"

#include <algorithm>
#include <limits>

#include "base/text.h"
#include "engine/reference_list.h"
#include "publish/publish_error.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// The settings file lies in the installation's root, and a patcher starts again for a new one only
// if the list spells it as the patcher does.
constexpr char kSettingsFile[] = "VelmoraUpdate.dat";
constexpr char kSettingsListPath[] = "./VelmoraUpdate.dat";

constexpr std::uint64_t kLargestFile = std::numeric_limits<std::int32_t>::max();

bool HoldsSeparator(const std::string& name) {
  for (std::size_t i = 0; i < name.size(); i += CharacterLength(name, i)) {
    if (name[i] == '\\') return true;
  }
  return false;
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

std::string ListPath(const fs::path& relative) {
  std::string listPath;
  for (const fs::path& element : relative) {
    if (HoldsSeparator(element.native())) {
      throw PublishError(relative.native() + ": a name holds a backslash");
    }
    if (!listPath.empty()) listPath += '\\';
    listPath += element.native();
  }
  return listPath == kSettingsFile ? kSettingsListPath : listPath;
}

SourceFile Describe(const fs::directory_entry& entry, const fs::path& root) {
  if (entry.is_symlink() || !entry.is_regular_file()) {
    throw PublishError(entry.path().native() + ": neither a plain file nor a directory");
  }
  SourceFile file{entry.path(), ListPath(entry.path().lexically_relative(root)), entry.file_size()};
  const std::string reason = ReasonAgainst(file.listPath, file.size);
  if (!reason.empty()) throw PublishError(entry.path().native() + ": " + reason);
  return file;
}

}  // namespace

std::string ReasonAgainst(const std::string& listPath, std::uint64_t size) {
  if (listPath.size() > kMaxListPath) return "its path has more than 259 bytes";
  if (listPath.find(',') != std::string::npos) return "its path holds a comma";
  if (std::any_of(listPath.begin(), listPath.end(), IsControl)) {
    return "its path holds a control character";
  }
  if (listPath.front() == ' ' || listPath.back() == ' ') {
    return "its path begins or ends with a blank";
  }
  if (listPath.find(kCompressedMark) != std::string::npos) {
    return "its path holds \".compressed\", where a patcher would cut it off";
  }
  if (size > kLargestFile) return "it has 2 GiB or more";
  return {};
}

std::string ServedPath(const std::string& listPath) {
  std::string served = listPath;
  std::replace(served.begin(), served.end(), '\\', '/');
  return served;
}

std::vector<SourceFile> ScanTree(const fs::path& root) {
  std::vector<SourceFile> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_directory() && !entry.is_symlink()) continue;
    files.push_back(Describe(entry, root));
  }
  std::sort(files.begin(), files.end(),
            [](const SourceFile& a, const SourceFile& b) { return a.listPath < b.listPath; });
  return files;
}

}  // namespace velmora::publish
