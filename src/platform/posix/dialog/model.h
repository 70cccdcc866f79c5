// The update dialog's controls as plain values, and the rules by which they change. Not
// synchronized: threads that share a model guard it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/dialog.h"

namespace velmora::platform::dialog {

// A progress bar that behaves like the Windows control.
struct Bar {
  std::int32_t lowest = 0;
  std::int32_t highest = 100;
  std::int32_t position = 0;
  std::int32_t step = 10;
};

void SetRange(Bar& bar, std::int32_t lowest, std::int32_t highest);
// A position outside the range becomes its nearest end.
void SetPosition(Bar& bar, std::int64_t position);
// A step beyond one end of the range goes to the other end.
void StepOnce(Bar& bar);
// 0 to 100; 0 if the range is empty.
[[nodiscard]] int PercentOf(const Bar& bar);

// What is fixed about a button.
struct ButtonKind {
  Control control;
  char key;             // on a terminal
  const char* command;  // in a script
  const char* name;     // in the lines
};

inline constexpr std::array<ButtonKind, 6> kButtons = {{
    {Control::kUpdateButton, 'u', "update", "Update button"},
    {Control::kStartGameButton, 's', "start", "Start Game button"},
    {Control::kRecheckButton, 'r', "recheck", "re-check button"},
    {Control::kOptionsButton, 'o', "options", "options button"},
    {Control::kDirectXButton, 'd', "dxdiag", "DirectX button"},
    {Control::kScreenshotsButton, 'p', "screenshots", "screenshots button"},
}};

// Where a button is in kButtons; their number for a control of another kind.
[[nodiscard]] std::size_t IndexOf(Control control);

struct ButtonState {
  std::string caption;
  bool enabled = true;

  bool operator==(const ButtonState&) const = default;
};

// All texts are code page 932.
struct DialogModel {
  DialogModel();

  // Null for a control of another kind.
  [[nodiscard]] Bar* FindBar(Control control);
  [[nodiscard]] ButtonState* FindButton(Control control);
  [[nodiscard]] const ButtonState* FindButton(Control control) const;

  std::string page;  // address of the information page
  std::string status;
  Bar fileBar;
  bool fileBarMoved = false;  // since its range was set; before, it is where the last file left it
  Bar overallBar;
  std::array<ButtonState, kButtons.size()> buttons;  // in the order of kButtons
};

// The bytes of the current file still to come.
[[nodiscard]] std::int64_t RestOfFile(const DialogModel& model);

// A message box; texts in code page 932.
struct BoxText {
  std::string text;
  std::string caption;
  std::uint32_t type = kBoxPlain;
};

}  // namespace velmora::platform::dialog
