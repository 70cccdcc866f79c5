// The dialog as a log, for an output that isn't a terminal: one line for each change of a button or
// of the page. Status and bars, which change with every file, are put in front of such a line, and
// else as often as the caller likes: as on a screen, what stands only between two looks isn't seen.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "platform/posix/terminal/model.h"

namespace velmora::platform::terminal {

class LineReport {
 public:
  // Adds a line for each difference between `model` and what was reported before, if a button or
  // the page differs.
  void Note(const DialogModel& model);
  // Adds a line for each difference of status and bars.
  void NoteFigures(const DialogModel& model);
  void Add(std::string_view line);

  [[nodiscard]] bool empty() const { return lines_.empty(); }
  // What was added since the last call: code page 932, each line with its line feed.
  [[nodiscard]] std::string Take();

 private:
  [[nodiscard]] bool HasEvent(const DialogModel& model) const;
  void NotePage(const std::string& page);
  void NoteStatus(const std::string& status);
  void NoteFileBar(const Bar& bar);
  void NoteOverallBar(const Bar& bar);
  void AddBar(const char* name, const Bar& bar);
  void NoteButton(std::size_t index, const ButtonState& button);

  DialogModel reported_;
  std::string lines_;
};

// `text` in one line: " | " in the place of its line feeds, none for those at its end; the blanks
// in front of a line feed are dropped.
[[nodiscard]] std::string InOneLine(std::string_view text);

}  // namespace velmora::platform::terminal
