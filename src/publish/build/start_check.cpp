#include "publish/build/start_check.h"

#include <filesystem>

#include "base/ascii.h"
#include "publish/common/disk_text.h"
#include "publish/common/published_list.h"
#include "publish/common/shown_text.h"
#include "publish/lint/acceptance.h"
#include "publish/lint/lint.h"
#include "publish/lint/settings.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

LintOptions LintOptionsOf(const BuildOptions& options) {
  LintOptions lint;
  lint.dataPath = options.dataPath;
  lint.listName = options.listName;
  return lint;
}

Acceptance AcceptanceOf(const BuildOptions& options) {
  const auto file = AcceptedFile(options.tree);
  Acceptance acceptance = file ? Acceptance(ReadWholeFile(*file), ShownPath(*file)) : Acceptance();
  for (const Rule rule : options.accepted) acceptance.Add(rule);
  return acceptance;
}

// The file and its line; or the option that names the client, which is all else.
std::string PlaceOf(const LintFinding& finding, const std::string& clientExe) {
  if (finding.file.empty()) return clientExe.empty() ? "no --exe" : "--exe";
  const std::string file = ShownPath(finding.file);
  return finding.line == 0 ? file : file + ":" + std::to_string(finding.line);
}

std::string WhatIsWrong(const LintFinding& finding) {
  std::string text = finding.rule->what;
  const bool isInPlace = finding.rule->id == Rule::kPatcherNotAProgram;
  if (!finding.subject.empty() && !isInPlace) text += ": " + ShownText(finding.subject);
  if (!finding.detail.empty()) text += " (" + ShownText(finding.detail) + ")";
  return text;
}

// The remedy within a sentence, and the way to publish all the same.
std::string WayOut(const LintRule& rule) {
  std::string text = rule.remedy;
  text.front() = LowerCase(text.front());
  if (text.ends_with('.')) text.pop_back();
  return text + "; --accept " + std::to_string(rule.Number()) +
         (rule.severity == Severity::kError ? " allows it" : " silences this");
}

}  // namespace

std::string RequestedPath(const BuildOptions& options) {
  if (options.dataPath) return *options.dataPath;
  const fs::path settings = options.tree / "VelmoraUpdate.dat";
  return fs::is_regular_file(settings) ? LongestDataPath(settings) : "";
}

StartFindings CheckStart(const std::vector<SourceFile>& files, const std::string& clientExe,
                         const BuildOptions& options, Complaints& complaints) {
  std::vector<TreeFile> published;
  published.reserve(files.size());
  for (const SourceFile& file : files) published.push_back({file.path, file.listPath});
  auto findings = LintStart(published, clientExe, LintOptionsOf(options));
  StartFindings result;
  result.accepted = AcceptanceOf(options).RemoveFrom(findings);
  for (const LintFinding& finding : findings) {
    const LintRule& rule = *finding.rule;
    const std::string place = PlaceOf(finding, clientExe);
    const std::string what = WhatIsWrong(finding);
    const std::string wayOut = WayOut(rule);
    if (rule.severity == Severity::kError) {
      complaints.Add(place, what, wayOut);
    } else {
      std::string& warning = result.warnings.emplace_back(place);
      warning += ": ";
      warning += what;
      warning += "; ";
      warning += wayOut;
    }
  }
  return result;
}

}  // namespace velmora::publish
