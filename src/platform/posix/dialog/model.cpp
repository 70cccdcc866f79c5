#include "platform/posix/dialog/model.h"

#include <algorithm>
#include <utility>

#include "base/texts.h"

namespace velmora::platform::dialog {

void SetRange(Bar& bar, std::int32_t lowest, std::int32_t highest) {
  bar.lowest = lowest;
  bar.highest = highest;
  SetPosition(bar, bar.position);
}

void SetPosition(Bar& bar, std::int64_t position) {
  const std::int64_t low = bar.lowest;
  const std::int64_t high = bar.highest;
  bar.position = static_cast<std::int32_t>(std::min(std::max(position, low), high));
}

void StepOnce(Bar& bar) {
  const std::int64_t next = std::int64_t{bar.position} + bar.step;
  if (next > bar.highest) {
    bar.position = bar.lowest;
  } else if (next < bar.lowest) {
    bar.position = bar.highest;
  } else {
    bar.position = static_cast<std::int32_t>(next);
  }
}

int PercentOf(const Bar& bar) {
  const std::int64_t extent = std::int64_t{bar.highest} - bar.lowest;
  if (extent <= 0) return 0;
  return static_cast<int>((std::int64_t{bar.position} - bar.lowest) * 100 / extent);
}

std::size_t IndexOf(Control control) {
  const auto* const found = std::ranges::find(kButtons, control, &ButtonKind::control);
  return static_cast<std::size_t>(found - kButtons.begin());
}

DialogModel::DialogModel()
    : buttons{{{texts::kUpdateButton, false},
               {texts::kStartGameButton, false},
               {texts::kRecheckButton, false},
               {texts::kOptionsButton, true},
               {texts::kDirectXButton, true},
               {texts::kScreenshotsButton, true}}} {}

Bar* DialogModel::FindBar(Control control) {
  if (control == Control::kFileBar) return &fileBar;
  if (control == Control::kOverallBar) return &overallBar;
  return nullptr;
}

const ButtonState* DialogModel::FindButton(Control control) const {
  const std::size_t index = IndexOf(control);
  return index < buttons.size() ? &buttons[index] : nullptr;
}

ButtonState* DialogModel::FindButton(Control control) {
  return const_cast<ButtonState*>(std::as_const(*this).FindButton(control));
}

std::int64_t RestOfFile(const DialogModel& model) {
  const Bar& bar = model.fileBar;
  return std::int64_t{bar.highest} - (model.fileBarMoved ? bar.position : bar.lowest);
}

}  // namespace velmora::platform::dialog
