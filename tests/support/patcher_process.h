// The real program as a process of its own, driven by its script of commands.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace velmora::test {

class PatcherProcess {
 public:
  // Starts `program` in the working directory. Its output goes to "<name>.out" and "<name>.err".
  PatcherProcess(const std::string& program, const std::vector<std::string>& arguments,
                 std::string name = "patcher");
  // Ends the process if it still runs.
  ~PatcherProcess();
  PatcherProcess(const PatcherProcess&) = delete;
  PatcherProcess& operator=(const PatcherProcess&) = delete;

  // Gives a command line by line; EndInput is the end of the script.
  void Send(const std::string& command) const;
  void EndInput();

  // Whether `text` has appeared in the output, waited for at most ten seconds.
  [[nodiscard]] bool HasShown(const std::string& text) const;
  // The exit status, or -1 if the process still runs after ten seconds.
  [[nodiscard]] int Wait();
  [[nodiscard]] std::string Output() const;
  [[nodiscard]] std::string Errors() const;
  [[nodiscard]] pid_t id() const { return id_; }

 private:
  std::string name_;
  pid_t id_ = -1;
  int input_ = -1;
  bool ended_ = false;
};

}  // namespace velmora::test
