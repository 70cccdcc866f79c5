#include "publish/commands/command_line.h"

#include <algorithm>
#include <cstdio>
#include <system_error>

#include "publish/build/finished_publication.h"
#include "publish/build/zlib_blocks.h"
#include "publish/commands/commands.h"
#include "publish/common/nearest_word.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

using Words = std::vector<std::string>;

// An error counts as if there were nothing.
fs::file_type KindAt(const std::string& path) {
  std::error_code error;
  const fs::file_type kind = fs::status(PathOf(path), error).type();
  return kind == fs::file_type::none ? fs::file_type::not_found : kind;
}

// `why` returns the beginning of the message, empty if the path is right.
CLI::Validator Existing(const char* type, std::string (*why)(const std::string& path)) {
  const auto check = [why](const std::string& path) {
    const std::string text = why(path);
    return text.empty() ? text : text + path;
  };
  return {check, type};
}

std::string Joined(const Words& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

std::string Quoted(const std::string& word) { return "\"" + word + "\""; }

std::string Proposal(const std::string& word, const Words& known) {
  const std::string nearest = NearestWord(word, known);
  return nearest.empty() ? "" : "; did you mean " + Quoted(nearest) + "?";
}

Words CommandsOf(const CLI::App& app) {
  Words names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    names.push_back(command->get_name());
  }
  return names;
}

Words OptionsOf(const CLI::App& command) {
  Words names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  const auto isGroup = [](const CLI::App* inner) { return inner->get_name().empty(); };
  for (const CLI::App* group : command.get_subcommands(isGroup)) {
    for (const std::string& name : OptionsOf(*group)) names.push_back(name);
  }
  return names;
}

// The command that the line names; the tool itself if it names none.
const CLI::App& NamedCommand(const CLI::App& app) {
  const auto named = app.get_subcommands();
  return named.empty() ? app : *named.front();
}

std::string UnknownCommand(const CLI::App& app, const std::string& word) {
  const Words known = CommandsOf(app);
  const std::string proposal = Proposal(word, known);
  return "there is no command " + Quoted(word) + (proposal.empty() ? "." : proposal) +
         " Commands: " + Joined(known);
}

// Words that no option takes are what matters: the others may have been taken amiss because of
// them.
std::string WhatIsWrong(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = NamedCommand(app);
  const Words left = app.remaining(true);
  for (const std::string& word : left) {
    if (!word.starts_with('-') || word == "-") continue;
    const std::string name = word.substr(0, word.find('='));
    const Words known = OptionsOf(command);
    if (std::find(known.begin(), known.end(), name) != known.end()) {
      return Quoted(name) + " belongs after " + Quoted(command.get_name());
    }
    return "there is no option " + Quoted(name) + Proposal(name, known);
  }
  if (&command == &app) {
    return left.empty() ? "which command? Commands: " + Joined(CommandsOf(app))
                        : UnknownCommand(app, left.front());
  }
  return left.empty() ? error.what() : Quoted(left.front()) + " is one argument too many";
}

// A variable that isn't set must not become an option that means nothing.
void RefuseEmptyValues(CLI::App& app) {
  for (CLI::Option* const option : app.get_options()) {
    if (option->get_items_expected_max() == 0) continue;
    option->check(
        [](const std::string& value) {
          return value.empty() ? "is empty; is a variable not set?" : std::string();
        },
        "");
  }
  for (CLI::App* const inner : app.get_subcommands([](CLI::App*) { return true; })) {
    RefuseEmptyValues(*inner);
  }
}

}  // namespace

void Describe(CLI::App& command, const std::string& exitStatus, const std::string& example) {
  command.footer("Exit status: " + exitStatus +
                 ", 2 bad command line; 1 also if the output can't be written.\n"
                 "Example: velmora-publish " +
                 example);
}

std::string NoneOf(const std::string& value, const std::vector<std::string>& names) {
  return Quoted(value) + " is none of " + Joined(names);
}

CLI::Option* AddPaths(CLI::App& command, const std::string& option,
                      std::vector<std::filesystem::path>& paths, const std::string& description) {
  const auto take = [&paths](const Words& texts) {
    for (const std::string& text : texts) paths.push_back(PathOf(text));
  };
  return command.add_option_function<Words>(option, take, description);
}

CLI::Validator ExistingFile() {
  return Existing("FILE", [](const std::string& text) -> std::string {
    const fs::file_type kind = KindAt(text);
    if (kind == fs::file_type::not_found) return "File does not exist: ";
    return kind == fs::file_type::directory ? "File is actually a directory: " : "";
  });
}

CLI::Validator ExistingFolder() {
  return Existing("DIR", [](const std::string& text) -> std::string {
    const fs::file_type kind = KindAt(text);
    if (kind == fs::file_type::not_found) return "Directory does not exist: ";
    return kind == fs::file_type::directory ? "" : "Directory is actually a file: ";
  });
}

CLI::Validator ExistingFileOrFolder() {
  return Existing("PATH(existing)", [](const std::string& text) -> std::string {
    return KindAt(text) == fs::file_type::not_found ? "Path does not exist: " : "";
  });
}

void AddNamesOption(CLI::App& command, NameEncoding& names) {
  std::vector<std::pair<std::string, NameEncoding>> choices = {{"utf-8", NameEncoding::kUtf8}};
  std::string description = "What the names of TREE are: utf-8, which becomes code page 932";
  if (!platform::AreNamesUnicode()) {
    choices.emplace_back("bytes", NameEncoding::kBytes);
    description += ", or bytes, which stay as they are";
  }
  AddChoice<NameEncoding>(command, "--names", names, choices, description);
}

void AddAcceptOption(CLI::App& command, std::vector<Rule>& rules) {
  const auto add = [&rules](const std::vector<std::string>& numbers) {
    for (const std::string& number : numbers) {
      const std::optional<Rule> rule = RuleOfNumber(number);
      if (!rule) {
        throw CLI::ValidationError(
            "--accept",
            "\"" + ShownPath(number) + "\" is no rule: lint --rules prints all of them");
      }
      rules.push_back(*rule);
    }
  };
  command
      .add_option_function<std::vector<std::string>>(
          "--accept", add, "Rules whose findings are accepted, separated by commas; repeatable")
      ->type_name("RULE,...")
      ->delimiter(',')
      ->allow_extra_args(false);
}

void WarnIfUnfinished(const std::filesystem::path& place) {
  const std::string why = WhyUnfinished(place);
  if (!why.empty()) std::fprintf(stderr, "velmora-publish: warning: %s\n", why.c_str());
}

std::string Version() {
  return std::string("velmora-publish ") + VELMORA_VERSION + ", " + StreamMaker();
}

void RunCommandLine(CLI::App& app, std::vector<std::string> arguments, int& status) try {
  RefuseEmptyValues(app);
  std::reverse(arguments.begin(), arguments.end());  // as CLI11 wants them
  app.parse(std::move(arguments));
} catch (const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) {  // help and version
    app.exit(error);
    status = kDone;
  } else {
    const CLI::App& command = NamedCommand(app);
    const std::string name = &command == &app ? "" : command.get_name() + " ";
    std::fprintf(stderr, "velmora-publish: %s\nvelmora-publish %s--help tells more.\n",
                 WhatIsWrong(app, error).c_str(), name.c_str());
    status = kBadCommand;
  }
}

}  // namespace velmora::publish
