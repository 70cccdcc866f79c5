#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "publish/build/publication_link.h"
#include "publish/commands/command_line.h"
#include "publish/commands/commands.h"
#include "publish/common/disk_text.h"

namespace velmora::publish {
namespace {

struct SwitchCommand {
  std::filesystem::path link;
  std::filesystem::path publication;
  std::string listName = "hashlist.dat";
};

void Switch(const SwitchCommand& command) {
  const SwitchedLink link = SwitchLink(command.link, command.publication, command.listName);
  const std::string name = ShownPath(command.link);
  const std::string now = ShownPath(link.now);
  if (link.before.empty()) {
    std::printf("%s is new and leads to %s\n", name.c_str(), now.c_str());
  } else {
    std::printf("%s leads to %s; before: %s\n", name.c_str(), now.c_str(),
                ShownPath(link.before).c_str());
  }
  if (!link.changes) return;
  std::printf("%zu added, %zu changed, %zu removed\n", link.changes->added, link.changes->changed,
              link.changes->removed);
}

}  // namespace

void AddSwitchCommand(CLI::App& app, int& status) {
  CLI::App* command = app.add_subcommand(
      "switch", "Changes in one step which publication a symbolic link leads to");
  const auto arguments = std::make_shared<SwitchCommand>();
  AddPath(*command, "LINK", arguments->link, "The link that the web server follows")->required();
  AddPath(*command, "NEW", arguments->publication, "The folder of a complete publication")
      ->required()
      ->check(ExistingFolder());
  command->add_option("--list", arguments->listName, "File name of the list in both publications")
      ->type_name("NAME")
      ->capture_default_str();
  Describe(*command, "0 switched, 1 not switched: the link leads where it did before",
           "switch /srv/velmora/current /srv/velmora/publication-2");
  command->callback([arguments, &status] {
    Switch(*arguments);
    status = kDone;
  });
}

}  // namespace velmora::publish
