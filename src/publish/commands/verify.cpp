#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/console.h"
#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"
#include "publish/common/progress_line.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "publish/common/redirection.h"
#include "publish/common/shown_text.h"
#include "publish/verify/player_servers.h"
#include "publish/verify/verification.h"

namespace velmora::publish {
namespace {

using nlohmann::json;

struct VerifyArguments {
  std::string where;               // or
  std::filesystem::path settings;  // a player's file
  std::string listName;            // empty: the one of the settings, or the default
  std::string user;                // empty: the one of the settings, or none
  std::filesystem::path passwordFile;
  unsigned connections = 8;
  bool isQuiet = false;
  bool asJson = false;
  bool showsProgress = false;
};

// The outcome for one server or folder.
struct OriginReport {
  std::string name;
  std::string redirectedTo;  // empty: nowhere
  bool isVerified = false;   // false: it redirects to a server that has a report already
  VerifySummary summary;
  double seconds = 0;
};

bool IsUrl(const std::string& where) { return where.find("://") != std::string::npos; }

std::string CheckWhere(const std::string& where) {
  if (!IsUrl(where)) return ExistingFolder()(where);
  try {
    static_cast<void>(ServerOf(where));
    return "";
  } catch (const PublishError& error) {
    return error.what();
  }
}

void AddOptions(CLI::App& verify, VerifyArguments& arguments) {
  CLI::Option* const where = verify
                                 .add_option("WHERE", arguments.where,
                                             "http://host:port/path of a publication, or a folder")
                                 ->check(CheckWhere);
  AddPath(verify, "--settings", arguments.settings,
          "A player's settings file, in place of WHERE: verifies all of its servers")
      ->check(ExistingFile())
      ->excludes(where);
  verify
      .add_option(
          "--list", arguments.listName,
          "File name of the reference list, if it isn't the one of the settings or hashlist.dat")
      ->type_name("NAME");
  verify
      .add_option("--user", arguments.user,
                  "User for servers that want one; its password is in --password-file or in the "
                  "environment's VELMORA_PASSWORD")
      ->type_name("NAME");
  AddPath(verify, "--password-file", arguments.passwordFile,
          "A file whose first line is the password")
      ->check(ExistingFile())
      ->needs("--user");
  verify.add_option("--connections", arguments.connections, "Number of connections at a time")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  CLI::Option* const quiet =
      verify.add_flag("--quiet", arguments.isQuiet, "Print nothing but findings");
  verify.add_flag("--json", arguments.asJson, "Print everything as one JSON object");
  verify
      .add_flag("--progress", arguments.showsProgress, "Show the progress even without a terminal")
      ->excludes(quiet);
}

// Not from the command line, which all users of a machine can read.
std::string Password(const VerifyArguments& arguments) {
  if (!arguments.passwordFile.empty()) {
    const std::string text = ReadWholeFile(arguments.passwordFile);
    return text.substr(0, text.find_first_of("\r\n"));
  }
  const char* const text = std::getenv("VELMORA_PASSWORD");
  if (text == nullptr) {
    throw CLI::ValidationError("--user",
                               "the password is missing: give --password-file, or set "
                               "VELMORA_PASSWORD in the environment");
  }
  return text;
}

const char* Severity(const Finding& finding) {
  return finding.problem.isWarning ? "warning" : "error";
}

// The flaws of an enable.cdn are in UTF-8 already.
std::string ShownWhat(const Problem& problem) {
  return problem.kind == ProblemKind::kRedirection ? problem.what : ShownText(problem.what);
}

// Carries out the command and prints what it finds.
class Verifier {
 public:
  explicit Verifier(const VerifyArguments& arguments)
      : arguments_(arguments),
        hasLine_(arguments.showsProgress ||
                 (platform::IsErrorStreamATerminal() && !arguments.isQuiet)) {}

  // Returns the exit status.
  int Run();

 private:
  void VerifyServer(const Server& server, const std::string& listName);
  void VerifyFolder(const std::string& listName);
  void Verify(const Origin& origin, OriginReport& report);
  void AddProblems(const std::vector<Problem>& problems, OriginReport& report);
  void Close(const OriginReport& report);
  void PrintSummary(const OriginReport& report) const;
  [[nodiscard]] json Report() const;

  const VerifyArguments& arguments_;
  const bool hasLine_;
  std::vector<OriginReport> reports_;
  std::vector<Finding> findings_;
  std::size_t printed_ = 0;  // of them
};

// Sorts what was found since the last call, and prints it with the figures. The connections have
// found it in any order, but people and programs compare reports.
void Verifier::Close(const OriginReport& report) {
  const auto begin = findings_.begin() + static_cast<std::ptrdiff_t>(printed_);
  std::stable_sort(begin, findings_.end(),
                   [](const Finding& a, const Finding& b) { return a.path < b.path; });
  for (auto at = begin; at != findings_.end() && !arguments_.asJson; ++at) {
    std::printf("%s: %s %s: %s\n", Severity(*at), at->origin.c_str(), ShownText(at->path).c_str(),
                ShownWhat(at->problem).c_str());
  }
  printed_ = findings_.size();
  if (report.isVerified) PrintSummary(report);
  std::fflush(stdout);
  if (report.summary.isStopped) std::fputs("velmora-publish: stopped before the end\n", stderr);
}

void Verifier::PrintSummary(const OriginReport& report) const {
  const VerifySummary& summary = report.summary;
  if (!arguments_.asJson && !arguments_.isQuiet) {
    const std::string rate =
        ByteText(static_cast<double>(summary.bytes) / std::max(report.seconds, 1e-3));
    std::printf(
        "%s: %zu of %zu files, %llu bytes, %.1f s, %s/s, %zu requests; %zu errors, %zu warnings\n",
        report.name.c_str(), summary.checked, summary.files,
        static_cast<unsigned long long>(summary.bytes), report.seconds, rate.c_str(),
        summary.requests, summary.errors, summary.warnings);
  }
}

// Problems that aren't found by VerifyOrigin.
void Verifier::AddProblems(const std::vector<Problem>& problems, OriginReport& report) {
  for (const Problem& problem : problems) {
    findings_.push_back({report.name, kRedirectionName, problem});
    ++(problem.isWarning ? report.summary.warnings : report.summary.errors);
  }
}

void Verifier::Verify(const Origin& origin, OriginReport& report) {
  const auto start = std::chrono::steady_clock::now();
  const VerifySummary before = report.summary;
  Progress progress;
  {
    const ProgressLine line(progress, hasLine_);
    VerifyOptions options;
    options.connections = arguments_.connections;
    options.stop = &stopAsked;
    options.progress = &progress;
    options.found = [this](const Finding& finding) { findings_.push_back(finding); };
    report.summary = VerifyOrigin(origin, options);
  }
  report.summary.errors += before.errors;
  report.summary.warnings += before.warnings;
  report.isVerified = true;
  report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Verifier::VerifyFolder(const std::string& listName) {
  WarnIfUnfinished(PathOf(arguments_.where));
  const std::filesystem::path redirection = PathOf(arguments_.where) / kRedirectionName;
  const Origin origin = FolderOrigin(PathOf(arguments_.where), listName);
  OriginReport report;
  report.name = origin.name;
  if (std::filesystem::is_regular_file(redirection)) {
    AddProblems(RedirectionProblems(ReadWholeFile(redirection)), report);
  }
  Verify(origin, report);
  Close(report);
  reports_.push_back(report);
}

// Asks first where the server redirects its players, as patchers do.
void Verifier::VerifyServer(const Server& server, const std::string& listName) {
  const Redirection redirection = RedirectionOf(server);
  Origin origin = ServerOrigin(redirection.target, listName);
  origin.name = ShownText(origin.name);
  OriginReport report;
  report.name = ShownText(ServerName(server));
  AddProblems(redirection.problems, report);
  const bool isRedirected = origin.name != report.name;
  if (isRedirected) report.redirectedTo = origin.name;
  if (isRedirected && !arguments_.asJson && !arguments_.isQuiet) {
    std::printf("%s: redirected to %s\n", report.name.c_str(), origin.name.c_str());
    std::fflush(stdout);
  }
  const bool isKnown =
      std::any_of(reports_.begin(), reports_.end(), [&origin](const OriginReport& other) {
        return other.isVerified &&
               origin.name == (other.redirectedTo.empty() ? other.name : other.redirectedTo);
      });
  if (!isKnown) Verify(origin, report);
  Close(report);
  reports_.push_back(report);
}

json Verifier::Report() const {
  json servers = json::array();
  for (const OriginReport& report : reports_) {
    json& server = servers.emplace_back(json{{"server", report.name}});
    if (!report.redirectedTo.empty()) server["redirectedTo"] = report.redirectedTo;
    if (!report.isVerified) continue;
    server.update({{"files", report.summary.files},
                   {"checked", report.summary.checked},
                   {"bytes", report.summary.bytes},
                   {"requests", report.summary.requests},
                   {"seconds", report.seconds},
                   {"errors", report.summary.errors},
                   {"warnings", report.summary.warnings}});
  }
  json findings = json::array();
  for (const Finding& finding : findings_) {
    findings.push_back({{"severity", Severity(finding)},
                        {"server", finding.origin},
                        {"path", ShownText(finding.path)},
                        {"kind", KindName(finding.problem.kind)},
                        {"what", ShownWhat(finding.problem)}});
  }
  const auto sum = [this](auto VerifySummary::*figure) {
    std::uint64_t total = 0;
    for (const OriginReport& report : reports_) total += report.summary.*figure;
    return total;
  };
  return {{"servers", servers},
          {"findings", findings},
          {"files", sum(&VerifySummary::files)},
          {"checked", sum(&VerifySummary::checked)},
          {"bytes", sum(&VerifySummary::bytes)},
          {"errors", sum(&VerifySummary::errors)},
          {"warnings", sum(&VerifySummary::warnings)},
          {"stopped", stopAsked.load()}};
}

int Verifier::Run() {
  constexpr char kDefaultList[] = "hashlist.dat";
  const std::string password = arguments_.user.empty() ? "" : Password(arguments_);
  PlayerServers players;
  players.listName = kDefaultList;
  if (!arguments_.settings.empty()) {
    players = ReadPlayerServers(arguments_.settings);
  } else if (IsUrl(arguments_.where)) {
    players.servers = {ServerOf(arguments_.where)};
  }
  const std::string& listName =
      arguments_.listName.empty() ? players.listName : arguments_.listName;
  if (players.servers.empty()) VerifyFolder(listName);
  for (Server& server : players.servers) {
    if (!arguments_.user.empty()) {
      server.user = arguments_.user;
      server.password = password;
    }
    // Nobody may be left to read what would be found.
    if (!stopAsked && std::ferror(stdout) == 0) VerifyServer(server, listName);
  }
  if (arguments_.asJson) {
    // The name of a folder may not be UTF-8.
    std::printf("%s\n", Report().dump(2, ' ', false, json::error_handler_t::replace).c_str());
  }
  const bool hasErrors = std::any_of(findings_.begin(), findings_.end(),
                                     [](const Finding& f) { return !f.problem.isWarning; });
  if (hasErrors || stopAsked) return kFailed;
  return findings_.empty() ? kDone : kWarned;
}

}  // namespace

void AddVerifyCommand(CLI::App& app, int& status) {
  CLI::App* verify =
      app.add_subcommand("verify", "Verifies that players will accept what a server offers");
  const auto arguments = std::make_shared<VerifyArguments>();
  AddOptions(*verify, *arguments);
  Describe(*verify, "0 all is right, 1 errors or stopped, 3 only warnings",
           "verify http://patch.example.com/game");
  verify->callback([arguments, &status] {
    if (arguments->where.empty() && arguments->settings.empty()) {
      throw CLI::RequiredError("WHERE or --settings");
    }
    status = Verifier(*arguments).Run();
  });
}

}  // namespace velmora::publish
