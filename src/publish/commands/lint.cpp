#include "publish/lint/lint.h"

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"
#include "publish/common/disk_text.h"
#include "publish/common/published_list.h"
#include "publish/common/shown_text.h"

namespace velmora::publish {
namespace {

using Json = nlohmann::ordered_json;

struct LintCommand {
  std::string list;
  std::string listName = "hashlist.dat";
  std::string dataPath;
  std::string tree;
  NameEncoding treeNames = NameEncoding::kGuess;
  bool json = false;
  bool rules = false;
};

using LintFindings = std::vector<LintFinding>;

std::size_t CountOf(const LintFindings& findings, Severity severity) {
  std::size_t count = 0;
  for (const LintFinding& finding : findings) count += finding.rule->severity == severity ? 1 : 0;
  return count;
}

int StatusOf(const LintFindings& findings) {
  if (CountOf(findings, Severity::kError) > 0) return kFailed;
  return findings.empty() ? kDone : kWarned;
}

void PrintRule(const LintRule& rule) {
  std::printf("%d %s (%s)\n    %s\n    %s\n", rule.Number(), rule.what, SeverityName(rule.severity),
              rule.reason, rule.remedy);
}

// In the format of compilers, so that editors can jump to the line.
void PrintFinding(const std::string& list, const LintFinding& finding) {
  std::string text = list + ":";
  if (finding.line > 0) text += std::to_string(finding.line) + ":";
  text += std::string(" ") + SeverityName(finding.rule->severity) + " " +
          std::to_string(finding.rule->Number()) + ": " + finding.rule->what;
  if (!finding.subject.empty()) text += ": " + ShownText(finding.subject);
  if (!finding.detail.empty()) text += " (" + ShownText(finding.detail) + ")";
  std::printf("%s\n", text.c_str());
}

void PrintText(const std::string& list, const LintFindings& findings) {
  std::set<Rule> broken;
  for (const LintFinding& finding : findings) {
    PrintFinding(list, finding);
    broken.insert(finding.rule->id);
  }
  if (!broken.empty()) std::printf("\n");
  for (const Rule rule : broken) PrintRule(LintRuleOf(rule));
  std::printf("%zu errors, %zu warnings\n", CountOf(findings, Severity::kError),
              CountOf(findings, Severity::kWarning));
}

void PrintJson(const std::string& list, const LintFindings& findings) {
  Json report;
  report["list"] = list;
  report["errors"] = CountOf(findings, Severity::kError);
  report["warnings"] = CountOf(findings, Severity::kWarning);
  report["findings"] = Json::array();
  for (const LintFinding& finding : findings) {
    report["findings"].push_back({{"rule", finding.rule->Number()},
                                  {"severity", SeverityName(finding.rule->severity)},
                                  {"line", finding.line},
                                  {"what", finding.rule->what},
                                  {"subject", ShownText(finding.subject)},
                                  {"detail", ShownText(finding.detail)},
                                  {"reason", finding.rule->reason},
                                  {"remedy", finding.rule->remedy}});
  }
  std::printf("%s\n", report.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

int Lint(const LintCommand& command) {
  if (command.rules) {
    for (const LintRule& rule : LintRules()) PrintRule(rule);
    return kDone;
  }
  const std::filesystem::path file = ListFile(command.list, command.listName);
  LintOptions options;
  options.dataPath = command.dataPath;
  if (!command.tree.empty()) options.tree = command.tree;
  options.treeNames = command.treeNames;
  const LintFindings findings = LintList(ReadWholeFile(file), options);
  if (command.json) {
    PrintJson(ShownPath(file.native()), findings);
  } else {
    PrintText(ShownPath(file.native()), findings);
  }
  return StatusOf(findings);
}

}  // namespace

void AddLintCommand(CLI::App& app, int& status) {
  CLI::App* lint =
      app.add_subcommand("lint", "Finds what patchers would stumble over in a reference list");
  const auto command = std::make_shared<LintCommand>();
  CLI::Option* rules = lint->add_flag("--rules", command->rules, "Print all rules and exit");
  CLI::Option* list =
      lint->add_option("LIST", command->list, "A reference list, or a publication's folder");
  lint->add_option("--list", command->listName, "File name of the list in a folder")
      ->capture_default_str();
  lint->add_option("--data", command->dataPath,
                   "The settings' Data value, with which each request begins");
  lint->add_option("--tree", command->tree,
                   "What players have: names the files that the removals delete")
      ->check(CLI::ExistingDirectory);
  AddNamesOption(*lint, command->treeNames);
  lint->add_flag("--json", command->json, "Print the findings as JSON");
  lint->callback([=, &status] {
    if (rules->count() == 0 && list->count() == 0) throw CLI::RequiredError("LIST");
    status = Lint(*command);
  });
  Describe(*lint, "0 clean, 1 errors, 3 only warnings",
           "lint /srv/velmora/publication --data /game");
}

}  // namespace velmora::publish
