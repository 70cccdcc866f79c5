// The player's input: a script of one command per line, from a pipe or a file, or the keys of a
// terminal.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

#include "platform/posix/dialog/model.h"

namespace velmora::platform::terminal {

using dialog::ButtonKind;
using dialog::kButtons;

inline constexpr std::size_t kLongestScriptLine = 4096;
inline constexpr char kWaitCommand[] = "wait";
inline constexpr char kCloseCommand[] = "close";

struct ScriptLine {
  std::string text;      // trimmed; empty only if `tooLong`
  bool tooLong = false;  // longer than kLongestScriptLine; none of it was kept
};

// Splits the input into lines. Empty ones are dropped.
class ScriptInput {
 public:
  void Feed(std::string_view bytes);
  // Text after the last line feed counts as a line. Then come the commands `wait` and `close`: at
  // the end of a script the dialog waits for the run in progress and closes.
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

// How many bytes of the terminal's input belong to the first key; at least one. A named key, such
// as an arrow, sends several bytes (ECMA-48), the first of which is ESC.
[[nodiscard]] std::size_t KeyLength(std::string_view keys);

}  // namespace velmora::platform::terminal
