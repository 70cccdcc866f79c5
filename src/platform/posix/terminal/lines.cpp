#include "platform/posix/terminal/lines.h"

#include <utility>

#include "base/text.h"
#include "platform/posix/terminal/text.h"

namespace velmora::platform::terminal {
namespace {

std::string_view TrimmedEnd(std::string_view text, std::string_view characters) {
  return text.substr(0, text.find_last_not_of(characters) + 1);
}

bool LooksSame(const Bar& a, const Bar& b) {
  return a.lowest == b.lowest && a.highest == b.highest && PercentOf(a) == PercentOf(b);
}

}  // namespace

bool LineReport::HasEvent(const DialogModel& model) const {
  return model.page != reported_.page || model.buttons != reported_.buttons;
}

void LineReport::Note(const DialogModel& model) {
  if (!HasEvent(model)) return;
  NoteFigures(model);
  NotePage(model.page);
  for (std::size_t i = 0; i < kButtons.size(); ++i) NoteButton(i, model.buttons[i]);
}

void LineReport::NoteFigures(const DialogModel& model) {
  NoteStatus(model.status);
  NoteFileBar(model.fileBar);
  NoteOverallBar(model.overallBar);
}

void LineReport::Add(std::string_view line) {
  lines_ += line;
  lines_ += '\n';
}

std::string LineReport::Take() { return std::exchange(lines_, {}); }

void LineReport::NotePage(const std::string& page) {
  if (page == reported_.page) return;
  Add("page: " + InOneLine(page));
  reported_.page = page;
}

void LineReport::NoteStatus(const std::string& status) {
  if (status == reported_.status) return;
  const std::string line = InOneLine(status);
  if (line != InOneLine(reported_.status)) Add("status: " + line);
  reported_.status = status;
}

void LineReport::NoteFileBar(const Bar& bar) {
  if (LooksSame(bar, reported_.fileBar)) return;
  AddBar("file bar", bar);
  reported_.fileBar = bar;
}

void LineReport::NoteOverallBar(const Bar& bar) {
  if (LooksSame(bar, reported_.overallBar) && bar.position == reported_.overallBar.position) return;
  AddBar("overall bar", bar);
  reported_.overallBar = bar;
}

void LineReport::AddBar(const char* name, const Bar& bar) {
  Add(FormatText("%s: %d %% (%d / %d)", name, PercentOf(bar), bar.position, bar.highest));
}

void LineReport::NoteButton(std::size_t index, const ButtonState& button) {
  ButtonState& reported = reported_.buttons[index];
  if (button == reported) return;
  const std::string name = kButtons[index].name;
  if (button.enabled != reported.enabled) Add(name + (button.enabled ? ": enabled" : ": disabled"));
  if (button.caption != reported.caption) Add(name + ": " + InOneLine(button.caption));
  reported = button;
}

std::string InOneLine(std::string_view text) {
  std::string line;
  const char* separator = "";
  for (const std::string_view part : SplitLines(TrimmedEnd(text, " \n"))) {
    line += separator;
    line += TrimmedEnd(part, " ");
    separator = " | ";
  }
  return line;
}

}  // namespace velmora::platform::terminal
