// The dialog as a log, for an output that isn't a terminal: a line for each change of a button or
// of the page. The status and the bars change with every file: their lines are written before such
// a line, and otherwise as often as the caller likes. A value that is replaced before then is never
// written, just as a screen wouldn't show it.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "platform/posix/dialog/model.h"

namespace velmora::platform::terminal {

using dialog::Bar;
using dialog::ButtonState;
using dialog::DialogModel;
using dialog::kButtons;

class LineReport {
 public:
  // If a button or the page has changed: adds a line for each change since the last report.
  void Note(const DialogModel& model);
  // Adds a line for each change of the status and the bars.
  void NoteFigures(const DialogModel& model);
  void Add(std::string_view line);

  // The lines added since the last call: code page 932, each with its line feed.
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

// `text` on one line: each line feed becomes " | ", without the spaces before it. Those at the end
// are dropped.
[[nodiscard]] std::string InOneLine(std::string_view text);

}  // namespace velmora::platform::terminal
