// Runs velmora-publish as a process of its own.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace velmora::test {

// The exit status and what comes out of the pipe, as "STATUS: TEXT". The shell reads `arguments`.
[[nodiscard]] inline std::string RunPublish(const std::string& arguments) {
  FILE* const pipe = popen((VELMORA_PUBLISH " " + arguments).c_str(), "r");
  std::string text;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
  return std::to_string(WEXITSTATUS(pclose(pipe))) + ": " + text;
}

}  // namespace velmora::test
