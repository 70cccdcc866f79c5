// The update dialog's controls as plain values, with the rules by which they change. Whoever shares
// a model between threads guards it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/dialog.h"

namespace velmora::platform::terminal {

// A progress bar that behaves as the one of Windows does.
struct Bar {
  std::int32_t lowest = 0;
  std::int32_t highest = 100;
  std::int32_t position = 0;
  std::int32_t step = 10;
};

void SetRange(Bar& bar, std::int32_t lowest, std::int32_t highest);
// A position outside of the range becomes the nearest one inside.
void SetPosition(Bar& bar, std::int64_t position);
// A step beyond one end of the range goes on at the other end.
void StepOnce(Bar& bar);
// 0 to 100; 0 for a range without extent.
[[nodiscard]] int PercentOf(const Bar& bar);

// What never changes about a button.
struct ButtonKind {
  Control control;
  char key;             // on a terminal
  const char* command;  // in a script
  const char* name;     // in the output as lines
};

inline constexpr std::array<ButtonKind, 6> kButtons = {{
    {Control::kUpdateButton, 'u', "update", "Update button"},
    {Control::kStartGameButton, 's', "start", "Start Game button"},
    {Control::kRecheckButton, 'r', "recheck", "re-check button"},
    {Control::kOptionsButton, 'o', "options", "options button"},
    {Control::kDirectXButton, 'd', "dxdiag", "DirectX button"},
    {Control::kScreenshotsButton, 'p', "screenshots", "screenshots button"},
}};

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

  std::string page;  // address of the information page
  std::string status;
  Bar fileBar;
  bool fileBarMoved = false;  // since its range was set; until then it stands where a file left it
  Bar overallBar;
  std::array<ButtonState, kButtons.size()> buttons;  // in the order of kButtons
};

// The bytes of the present file that are still to come.
[[nodiscard]] std::int64_t RestOfFile(const DialogModel& model);

// A message box; texts in code page 932.
struct BoxText {
  std::string text;
  std::string caption;
  std::uint32_t type = kBoxPlain;
};

}  // namespace velmora::platform::terminal
