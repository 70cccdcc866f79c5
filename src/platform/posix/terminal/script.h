// The player's input: commands by name, a line each, out of a pipe or a file; or keys of a
// terminal.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

#include "platform/posix/terminal/model.h"

namespace velmora::platform::terminal {

inline constexpr std::size_t kLongestScriptLine = 4096;
inline constexpr char kWaitCommand[] = "wait";
inline constexpr char kCloseCommand[] = "close";

struct ScriptLine {
  std::string text;      // without blanks around it, never empty; nothing if `tooLong`
  bool tooLong = false;  // longer than kLongestScriptLine, nothing of it was kept
};

// Cuts the input into lines. Empty ones are dropped.
class ScriptInput {
 public:
  void Feed(std::string_view bytes);
  // What stands behind the last line feed counts as a line. The end of a script lets the run in
  // progress end and closes the dialog then, as if the two commands stood there.
  void End();

  [[nodiscard]] bool HasLine() const { return !lines_.empty(); }
  // Only if HasLine.
  ScriptLine Next();

 private:
  void Keep(std::string_view part);
  void EndLine();

  std::deque<ScriptLine> lines_;
  ScriptLine unfinished_;
};

// Null if no button has that command.
[[nodiscard]] const ButtonKind* FindByCommand(std::string_view command);
[[nodiscard]] const ButtonKind* FindByKey(char key);

// How many of the bytes from a terminal belong to the first key; at least one. A key with a name,
// an arrow say, sends several, the first of which is the escape character.
[[nodiscard]] std::size_t KeyLength(std::string_view keys);

}  // namespace velmora::platform::terminal
