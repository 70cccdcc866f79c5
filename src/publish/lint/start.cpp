// What players start with: the patcher, its settings and the client.
#include <algorithm>

#include "platform/paths.h"
#include "publish/common/list_path.h"
#include "publish/lint/checks.h"
#include "publish/lint/program_file.h"
#include "publish/lint/settings.h"
#include "settings/patcher_settings.h"

namespace velmora::publish {
namespace {

std::string FoldedName(const std::string& path) {
  return FoldedPath(platform::LastPathElement(path));
}

// What is called the same, in another folder of the installation.
std::string Proposal(const std::string& client, const std::vector<std::string>& listPaths) {
  const auto same = std::find_if(listPaths.begin(), listPaths.end(), [&](const auto& path) {
    return FoldedName(path) == FoldedName(client);
  });
  return same == listPaths.end() ? "" : "is \\" + *same + " meant?";
}

}  // namespace

void CheckStartFiles(const std::vector<TreeFile>& files, const LintOptions& options,
                     Findings& findings) {
  for (const TreeFile& file : files) {
    const std::string folded = FoldedPath(file.listPath);
    if (folded == kPatcherSettings) CheckSettings(file.path, options, findings);
    if (folded != kPatcherProgram) continue;
    const std::string why = WhyNotAProgram(file.path);
    if (!why.empty()) findings.AddOf(file.path, Rule::kPatcherNotAProgram, 0, file.listPath, why);
  }
}

void CheckClient(const ListedClient& client, const std::vector<std::string>& listPaths,
                 bool isWhole, Findings& findings) {
  const bool isNamed = !client.name.empty();
  const std::string name = isNamed ? client.name : PatcherSettings().ClientExe;
  const auto found = std::find_if(
      listPaths.begin(), listPaths.end(),
      [folded = FoldedPath(name)](const auto& path) { return FoldedPath(path) == folded; });
  if (found == listPaths.end()) {
    if (isNamed && isWhole) {
      findings.Add(Rule::kNoSuchClient, client.line, name, Proposal(name, listPaths));
    }
  } else if (!name.starts_with('\\')) {
    findings.Add(Rule::kClientOfFolderAbove, client.line, name,
                 isNamed
                     ? "is \\" + *found + " meant?"
                     : "which patchers start if the list names none; is \\" + *found + " meant?");
  }
}

}  // namespace velmora::publish
