// Runs velmora-publish as a process of its own.
#pragma once

#include <cstdio>
#include <string>

#ifdef _WIN32
#include "platform/processes.h"
#else
#include <sys/wait.h>
#endif

namespace velmora::test {

// The exit status and what comes out of the pipe, as "STATUS: TEXT". The shell reads `arguments`;
// on Windows that is cmd.exe.
[[nodiscard]] inline std::string RunPublish(const std::string& arguments) {
#ifdef _WIN32
  const std::string self = platform::ModulePath();
  const std::string tool = self.substr(0, self.rfind('\\')) + "\\velmora-publish.exe";
  FILE* const pipe = _popen((tool + " " + arguments).c_str(), "rb");
#else
  FILE* const pipe = popen((VELMORA_PUBLISH " " + arguments).c_str(), "r");
#endif
  std::string text;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
#ifdef _WIN32
  const int status = _pclose(pipe);
#else
  const int status = WEXITSTATUS(pclose(pipe));
#endif
  return std::to_string(status) + ": " + text;
}

}  // namespace velmora::test
