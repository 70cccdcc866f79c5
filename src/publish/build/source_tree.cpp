#include "publish/build/source_tree.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <system_error>

#include "base/ascii.h"
#include "base/text.h"
#include "engine/reference_list.h"
#include "platform/url.h"
#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// The settings file lies in the installation's root, and a patcher starts again for a new one only
// if the list spells it as the patcher does.
constexpr char kSettingsFile[] = "VelmoraUpdate.dat";
constexpr char kProgramFile[] = "VelmoraUpdate.exe";
constexpr char kSettingsListPath[] = "./VelmoraUpdate.dat";

constexpr std::uint64_t kLargestFile = std::numeric_limits<std::int32_t>::max();
constexpr std::size_t kMaxRequestPath = 259;
constexpr std::size_t kMaxName = 255;  // bytes that file systems take

bool HoldsSeparator(const std::string& name) {
  for (std::size_t i = 0; i < name.size(); i += CharacterLength(name, i)) {
    if (name[i] == '\\') return true;
  }
  return false;
}

// The backslash behind such a name would become the second half of its last character.
bool EndsInHalfCharacter(const std::string& name) {
  std::size_t last = 0;
  for (std::size_t i = 0; i < name.size(); i += CharacterLength(name, i)) last = i;
  return last + 1 == name.size() && IsLeadByte(name[last]);
}

bool IsMisspelled(const std::string& listPath) {
  const std::string path = FoldedPath(listPath);
  return (path == FoldedPath(kSettingsFile) && listPath != kSettingsListPath) ||
         (path == FoldedPath(kProgramFile) && listPath != kProgramFile);
}

std::string ReasonAgainstName(std::string_view name) {
  if (name == ".") return {};  // the settings file's spelling
  if (name.empty() || name.back() == '.' || name.back() == ' ') {
    return "a name in its path ends in a dot or a blank, which Windows drops";
  }
  if (HoldsForbiddenCharacter(name)) return "a name in its path holds one of < > : \" | * ?";
  if (NamesDevice(name)) return "a name in its path means a device on Windows";
  return {};
}

std::string ListPath(const fs::path& relative) {
  std::string listPath;
  for (const fs::path& element : relative) {
    const std::string& name = element.native();
    if (HoldsSeparator(name)) throw PublishError(relative.native() + ": a name holds a backslash");
    if (EndsInHalfCharacter(name)) {
      throw PublishError(
          relative.native() +
          ": a name ends in half a character of code page 932, as names in UTF-8 do");
    }
    if (!listPath.empty()) listPath += '\\';
    listPath += name;
  }
  return listPath == kSettingsFile ? kSettingsListPath : listPath;
}

void RequireNoCollision(const std::vector<SourceFile>& files) {
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (const SourceFile& file : files) paths.push_back(file.listPath);
  const auto collisions = Collisions(paths);
  if (collisions.empty()) return;
  throw PublishError(
      collisions.front().first + " and " + collisions.front().second +
      ": players' disks don't tell capitals from small letters, and can't hold both");
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

void ScanFolder(const fs::path& folder, const fs::path& root, const IgnoreRules& rules,
                std::vector<SourceFile>& files) {
  std::error_code error;
  fs::directory_iterator at(folder, error);
  for (; !error && at != fs::end(at); at.increment(error)) {
    const bool isDirectory = at->is_directory() && !at->is_symlink();
    if (rules.Ignores(at->path().lexically_relative(root).native(), isDirectory)) continue;
    if (isDirectory) {
      ScanFolder(at->path(), root, rules, files);
    } else {
      files.push_back(Describe(*at, root));
    }
  }
  if (error) throw PublishError(folder.native() + ": can't be read: " + error.message());
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
  if (listPath.find_first_of("?%#") != std::string::npos) {
    return "its path holds a question mark, a percent or a number sign, which mean something else "
           "to a web server";
  }
  if (listPath.back() == '\\') {
    return "its path ends in the byte 5C, which is asked for as a slash: no web server offers that";
  }
  for (const std::string_view name : PathElements(listPath)) {
    if (std::string reason = ReasonAgainstName(name); !reason.empty()) return reason;
  }
  if (!CanBeAskedFor(listPath, {})) return "its path has more than 258 bytes after escaping";
  if (IsMisspelled(listPath)) {
    return "patchers start anew for VelmoraUpdate.exe and VelmoraUpdate.dat in this spelling alone";
  }
  if (IsPatchersOwn(FoldedPath(listPath))) return "a patcher has a file of this name of its own";
  if (size > kLargestFile) return "it has 2 GiB or more";
  return {};
}

std::vector<std::pair<std::string, std::string>> Collisions(
    const std::vector<std::string>& listPaths) {
  std::vector<std::pair<std::string, std::string>> collisions;
  std::map<std::string, const std::string*> files;
  for (const std::string& path : listPaths) {
    const auto [at, isFree] = files.emplace(FoldedPath(path), &path);
    if (!isFree) collisions.emplace_back(*at->second, path);
  }
  for (const auto& [foldedPath, path] : files) {
    for (const std::string_view folder : FoldersAbove(foldedPath)) {
      const auto at = files.find(std::string(folder));
      if (at != files.end()) collisions.emplace_back(*at->second, *path);
    }
  }
  return collisions;
}

bool CanBeAskedFor(const std::string& listPath, std::string_view suffix) {
  const std::string served = ServedPath(listPath);
  const std::size_t name = served.size() - (served.rfind('/') + 1);
  if (served.size() + suffix.size() > kMaxListPath || name + suffix.size() > kMaxName) return false;
  // As the patcher does it; the byte that its size counts for the end stands for the slash in
  // front.
  return platform::CanonicalizeUrlPath(served, platform::Canonicalize::kUnsafe,
                                       kMaxRequestPath - suffix.size())
      .has_value();
}

std::vector<SourceFile> ScanTree(const fs::path& root, const IgnoreRules& rules) {
  std::vector<SourceFile> files;
  ScanFolder(root, root, rules, files);
  std::sort(files.begin(), files.end(),
            [](const SourceFile& a, const SourceFile& b) { return a.listPath < b.listPath; });
  RequireNoCollision(files);
  return files;
}

}  // namespace velmora::publish
