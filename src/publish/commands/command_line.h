// What the command lines of all commands have in common.
#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "publish/common/disk_text.h"
#include "publish/lint/rules.h"

namespace velmora::publish {

// Ends the help of a command. `exitStatus` is what its exit statuses 0 and 1, and others of its
// own, mean, such as "0 no findings, 1 errors"; `example` is a whole command line without the
// program's name. Every command is described by this.
void Describe(CLI::App& command, const std::string& exitStatus, const std::string& example);

// The message for a `value` that isn't among `names`: "maybe" is none of always, never, pays.
[[nodiscard]] std::string NoneOf(const std::string& value, const std::vector<std::string>& names);

// Adds an option that takes one of these names and sets `value` to what stands for it.
template <typename Value>
CLI::Option* AddChoice(CLI::App& command, const std::string& option, Value& value,
                       const std::vector<std::pair<std::string, Value>>& choices,
                       const std::string& description) {
  std::vector<std::string> names;
  std::string type;
  for (const auto& choice : choices) {
    names.push_back(choice.first);
    type += (type.empty() ? "" : "|") + choice.first;
  }
  const auto take = [=, &value](const std::string& name) {
    for (const auto& choice : choices) {
      if (choice.first == name) return value = choice.second, void();
    }
    throw CLI::ValidationError(option, NoneOf(name, names));
  };
  return command.add_option_function<std::string>(option, take, description)->type_name(type);
}

// Adds an option, or an argument, that is a path. `path` may be optional.
template <typename Path>
CLI::Option* AddPath(CLI::App& command, const std::string& option, Path& path,
                     const std::string& description) {
  return command.add_option_function<std::string>(
      option, [&path](const std::string& text) { path = PathOf(text); }, description);
}

// One that can be given several times.
CLI::Option* AddPaths(CLI::App& command, const std::string& option,
                      std::vector<std::filesystem::path>& paths, const std::string& description);

// What such an option's check requires to exist.
[[nodiscard]] CLI::Validator ExistingFile();
[[nodiscard]] CLI::Validator ExistingFolder();
[[nodiscard]] CLI::Validator ExistingFileOrFolder();

// The option --names, for a command that reads a tree.
void AddNamesOption(CLI::App& command, NameEncoding& names);

// The option --accept, whose rules are added to `rules`.
void AddAcceptOption(CLI::App& command, std::vector<Rule>& rules);

// The tool's version, and that of what decides the bytes of compressed payloads.
[[nodiscard]] std::string Version();

// Parses the command line, which carries out the command that it names. If it names none, or makes
// no sense, prints help, version or what is wrong, and sets `status`.
void RunCommandLine(CLI::App& app, std::vector<std::string> arguments, int& status);

// Prints a warning if `place` is the folder of a publication that a build is about to change, or
// has left half changed.
void WarnIfUnfinished(const std::filesystem::path& place);

}  // namespace velmora::publish
