// The real program as a child process, driven by a script of commands.
#pragma once

#include <unistd.h>

#include <string>
#include <vector>

#include "support/terminal_child.h"

namespace velmora::test {

class PatcherProcess : public TerminalChild {
 public:
  // Starts `program` in the working directory.
  PatcherProcess(const std::string& program, const std::vector<std::string>& arguments)
      : TerminalChild(WithPipes([&] {
          std::vector<char*> words = {const_cast<char*>(program.c_str())};
          for (const auto& argument : arguments) {
            words.push_back(const_cast<char*>(argument.c_str()));
          }
          words.push_back(nullptr);
          execv(words[0], words.data());
          return 126;
        })) {}

  // Sends one command of the script; EndInput ends the script.
  void Send(const std::string& command) const { TerminalChild::Send(command + "\n"); }
  void EndInput() { CloseInput(); }
  [[nodiscard]] bool HasShown(const std::string& text) { return WaitFor(text); }
};

}  // namespace velmora::test
