#include "publish/source_tree.h"

#include <algorithm>
#include <array>
#include <limits>

#include "base/text.h"
#include "engine/reference_list.h"
#include "engine/verify_cache.h"
#include "platform/url.h"
#include "publish/publish_error.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// The settings file lies in the installation's root, and a patcher starts again for a new one only
// if the list spells it as the patcher does.
constexpr char kSettingsFile[] = "VelmoraUpdate.dat";
constexpr char kSettingsListPath[] = "./VelmoraUpdate.dat";

// What a patcher writes or runs itself in the root: a published file of such a name would never
// stay as it is.
constexpr std::array<std::string_view, 3> kPatchersOwn = {kCacheFile, "session.log",
                                                          "_VelmoraUpdate.exe"};

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

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

bool SameLetter(char a, char b) {
  const auto lower = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return lower(a) == lower(b);
}

// Players' systems don't tell capitals from small letters.
bool IsPatchersOwn(std::string_view path) {
  return std::any_of(kPatchersOwn.begin(), kPatchersOwn.end(), [path](std::string_view own) {
    return std::equal(own.begin(), own.end(), path.begin(), path.end(), SameLetter);
  });
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
  if (listPath.find_first_of("?%") != std::string::npos) {
    return "its path holds a question mark or a percent sign, which mean something else to a web "
           "server";
  }
  if (listPath.back() == '\\') {
    return "its path ends in the byte 5C, which is asked for as a slash: no web server offers that";
  }
  if (!CanBeAskedFor(listPath, {})) return "its path has more than 258 bytes after escaping";
  if (IsPatchersOwn(listPath)) return "a patcher has a file of this name of its own";
  if (size > kLargestFile) return "it has 2 GiB or more";
  return {};
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
