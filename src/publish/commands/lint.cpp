#include "publish/lint/lint.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"
#include "publish/common/disk_text.h"
#include "publish/common/published_list.h"
#include "publish/common/shown_text.h"
#include "publish/lint/acceptance.h"

namespace velmora::publish {
namespace {

using Json = nlohmann::ordered_json;

struct LintCommand {
  std::filesystem::path list;
  std::string listName = "hashlist.dat";
  bool isListNamed = false;
  std::optional<std::string> dataPath;
  std::filesystem::path tree;
  std::filesystem::path settings;
  NameEncoding treeNames = NameEncoding::kGuess;
  std::vector<Rule> accepted;
  std::filesystem::path acceptedFile;  // empty: the one that goes with the tree, if any
  bool json = false;
  bool rules = false;
};

using LintFindings = std::vector<LintFinding>;

struct LintReport {
  std::string list;  // empty: none
  LintFindings findings;
  std::size_t accepted = 0;  // findings, besides those
  std::string acceptedFile;  // empty: none
  std::vector<StaleEntry> stale;
};

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
void PrintFinding(const std::string& file, const LintFinding& finding) {
  std::string text = file + ":";
  if (finding.line > 0) text += std::to_string(finding.line) + ":";
  text += std::string(" ") + SeverityName(finding.rule->severity) + " " +
          std::to_string(finding.rule->Number()) + ": " + finding.rule->what;
  if (!finding.subject.empty()) text += ": " + ShownText(finding.subject);
  if (!finding.detail.empty()) text += " (" + ShownText(finding.detail) + ")";
  std::printf("%s\n", text.c_str());
}

std::string FileOf(const LintReport& report, const LintFinding& finding) {
  return finding.file.empty() ? report.list : ShownPath(finding.file);
}

// A number and what it counts.
std::string Counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

void PrintText(const LintReport& report) {
  std::set<Rule> broken;
  for (const LintFinding& finding : report.findings) {
    PrintFinding(FileOf(report, finding), finding);
    broken.insert(finding.rule->id);
  }
  if (!broken.empty()) std::printf("\n");
  for (const Rule rule : broken) PrintRule(LintRuleOf(rule));
  for (const StaleEntry& entry : report.stale) {
    std::printf("%s:%zu: note: accepts nothing, so it can be removed: %s\n",
                report.acceptedFile.c_str(), entry.line, ShownText(entry.text).c_str());
  }
  std::string sum = Counted(CountOf(report.findings, Severity::kError), "error") + ", " +
                    Counted(CountOf(report.findings, Severity::kWarning), "warning");
  if (report.accepted > 0) sum += "; " + std::to_string(report.accepted) + " accepted";
  std::printf("%s\n", sum.c_str());
}

void PrintJson(const LintReport& report) {
  Json json;
  if (!report.list.empty()) json["list"] = report.list;
  json["errors"] = CountOf(report.findings, Severity::kError);
  json["warnings"] = CountOf(report.findings, Severity::kWarning);
  json["accepted"] = report.accepted;
  json["findings"] = Json::array();
  for (const LintFinding& finding : report.findings) {
    json["findings"].push_back({{"rule", finding.rule->Number()},
                                {"severity", SeverityName(finding.rule->severity)},
                                {"file", FileOf(report, finding)},
                                {"line", finding.line},
                                {"what", finding.rule->what},
                                {"subject", ShownText(finding.subject)},
                                {"detail", ShownText(finding.detail)},
                                {"reason", finding.rule->reason},
                                {"remedy", finding.rule->remedy}});
  }
  json["stale"] = Json::array();
  for (const StaleEntry& entry : report.stale) {
    json["stale"].push_back(
        {{"file", report.acceptedFile}, {"line", entry.line}, {"entry", ShownText(entry.text)}});
  }
  std::printf("%s\n", json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

bool IsChecked(Rule rule, const LintCommand& command) {
  const bool hasList = !command.list.empty();
  const bool hasTree = !command.tree.empty();
  switch (ScopeOf(rule)) {
    case RuleScope::kList:
      return hasList;
    case RuleScope::kTree:
      return hasTree;
    case RuleScope::kListAndTree:
      return hasList && hasTree;
    case RuleScope::kSettings:
      break;
  }
  return hasTree || !command.settings.empty();
}

// Takes what is accepted out of the findings.
void Accept(const LintCommand& command, LintReport& report) {
  std::optional<std::filesystem::path> file;
  if (!command.acceptedFile.empty()) {
    file = command.acceptedFile;
  } else if (!command.tree.empty()) {
    file = AcceptedFile(command.tree);
  }
  Acceptance acceptance;
  if (file) {
    report.acceptedFile = ShownPath(*file);
    acceptance = Acceptance(ReadWholeFile(*file), report.acceptedFile);
  }
  for (const Rule rule : command.accepted) acceptance.Add(rule);
  report.accepted = acceptance.RemoveFrom(report.findings);
  report.stale = acceptance.Stale([&command](Rule rule) { return IsChecked(rule, command); });
}

// By which name players ask for the list; empty if that isn't known.
std::string ListNameOf(const LintCommand& command) {
  if (command.isListNamed) return command.listName;
  if (command.list.empty()) return {};
  return TextOf(ListFile(command.list, command.listName).filename());
}

int Lint(const LintCommand& command) {
  if (command.rules) {
    for (const LintRule& rule : LintRules()) PrintRule(rule);
    return kDone;
  }
  LintOptions options;
  options.dataPath = command.dataPath;
  if (!command.tree.empty()) options.tree = command.tree;
  options.treeNames = command.treeNames;
  if (!command.settings.empty()) options.settings = command.settings;
  options.listName = ListNameOf(command);
  LintReport report;
  if (command.list.empty()) {
    report.findings = LintWithoutList(options);
  } else {
    WarnIfUnfinished(command.list);
    const std::filesystem::path file = ListFile(command.list, command.listName);
    report.list = ShownPath(file);
    report.findings = LintList(ReadWholeFile(file), options);
  }
  Accept(command, report);
  if (command.json) {
    PrintJson(report);
  } else {
    PrintText(report);
  }
  return StatusOf(report.findings);
}

}  // namespace

void AddLintCommand(CLI::App& app, int& status) {
  CLI::App* lint =
      app.add_subcommand("lint", "Finds what patchers would stumble over in a reference list");
  const auto command = std::make_shared<LintCommand>();
  CLI::Option* rules = lint->add_flag("--rules", command->rules, "Print all rules and exit");
  CLI::Option* list =
      AddPath(*lint, "LIST", command->list, "A reference list, or a publication's folder");
  CLI::Option* listName =
      lint->add_option("--list", command->listName,
                       "File name of the list in a folder, which the settings should name")
          ->type_name("NAME")
          ->capture_default_str();
  lint->add_option("--data", command->dataPath,
                   "The path with which each request begins, as Data in the settings")
      ->type_name("PATH");
  CLI::Option* tree =
      AddPath(*lint, "--tree", command->tree,
              "What players have: names the files that the removals delete, and checks "
              "the patcher and its settings")
          ->check(ExistingFolder());
  CLI::Option* settings =
      AddPath(*lint, "--settings", command->settings,
              "A settings file: checks whether it leads patchers to their server")
          ->check(ExistingFile());
  AddNamesOption(*lint, command->treeNames);
  AddAcceptOption(*lint, command->accepted);
  AddPath(*lint, "--accepted", command->acceptedFile,
          "A file of accepted findings, each line: RULE [PATH] # REASON; default: "
          "TREE/.publishlint, or .publishlint next to TREE")
      ->check(ExistingFile());
  lint->add_flag("--json", command->json, "Print the findings as JSON");
  lint->callback([=, &status] {
    const bool hasInput = list->count() + tree->count() + settings->count() > 0;
    if (rules->count() == 0 && !hasInput) throw CLI::RequiredError("LIST, --tree or --settings");
    command->isListNamed = listName->count() > 0;
    status = Lint(*command);
  });
  Describe(*lint, "0 clean or all accepted, 1 errors, 3 only warnings",
           "lint /srv/velmora/publication --data /game");
}

}  // namespace velmora::publish
