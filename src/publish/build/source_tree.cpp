#include "publish/build/source_tree.h"

#include <algorithm>
#include <system_error>

#include "base/ascii.h"
#include "base/text.h"
#include "engine/reference_list.h"
#include "publish/common/publish_error.h"
#include "publish/lint/lint.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// Patchers restart for new settings only if the list has this spelling.
constexpr char kSettingsFile[] = "VelmoraUpdate.dat";
constexpr char kSettingsListPath[] = "./VelmoraUpdate.dat";

bool HoldsBackslash(const std::string& name) {
  for (const std::string_view character : Characters(name)) {
    if (character == "\\") return true;
  }
  return false;
}

// The backslash after such a name would become the second half of its last character.
bool EndsInHalfCharacter(const std::string& name) {
  std::string_view last;
  for (const std::string_view character : Characters(name)) last = character;
  return last.size() == 1 && IsLeadByte(last[0]);
}

std::string ListPath(const fs::path& relative) {
  std::string listPath;
  for (const fs::path& element : relative) {
    const std::string& name = element.native();
    if (HoldsBackslash(name)) throw PublishError(relative.native() + ": a name holds a backslash");
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

// What the linter can't find, because a list says something else with such a path. Empty if the
// path is fine.
std::string WhyNotPublishable(const std::string& listPath) {
  if (IsWhiteSpace(listPath.front())) return "its path begins with white space";
  if (listPath.find('\n') != std::string::npos) return "its path holds a line feed";
  if (listPath.find(kCompressedMark) != std::string::npos) {
    return "its path holds \".compressed\", where a patcher would cut it off";
  }
  if (listPath.back() == '\\') {
    return "its path ends in the byte 5C, which is requested as a slash: no web server offers that";
  }
  return {};
}

SourceFile Describe(const fs::directory_entry& entry, const fs::path& root) {
  if (entry.is_symlink() || !entry.is_regular_file()) {
    throw PublishError(entry.path().native() + ": neither a plain file nor a directory");
  }
  SourceFile file{entry.path(), ListPath(entry.path().lexically_relative(root)), entry.file_size()};
  const std::string reason = WhyNotPublishable(file.listPath);
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

// Checks a list of these files, each on its line, with invented hashes.
void RequireNoLintErrors(const std::vector<SourceFile>& files) {
  const std::string hash = ", " + std::string(kMaxListHash, 'A') + ", ";
  std::string text;
  for (const SourceFile& file : files) {
    const std::string size = std::to_string(file.size);
    text += "FILE : " + file.listPath;
    text += hash + size;
    text += hash + size + "\n";
  }
  for (const LintFinding& finding : LintFiles(text)) {
    const LintRule& rule = *finding.rule;
    if (rule.severity != Severity::kError) continue;
    throw PublishError(files[finding.line - 1].path.native() + ": " + rule.what + ". " +
                       rule.reason + " " + rule.remedy);
  }
}

}  // namespace

std::vector<SourceFile> ScanTree(const fs::path& root, const IgnoreRules& rules) {
  std::vector<SourceFile> files;
  ScanFolder(root, root, rules, files);
  std::sort(files.begin(), files.end(),
            [](const SourceFile& a, const SourceFile& b) { return a.listPath < b.listPath; });
  RequireNoLintErrors(files);
  return files;
}

}  // namespace velmora::publish
