// The operations on the update dialog. They change a model, which a loop shows.
#include "platform/dialog.h"

#include "platform/posix/dialog/loop.h"
#include "platform/posix/dialog/page.h"
#include "platform/posix/dialog/state.h"

namespace velmora::platform {
namespace {

using dialog::Bar;
using dialog::BoxText;
using dialog::ButtonState;
using dialog::DialogModel;
using dialog::DialogState;

// Never destroyed: the worker may use it until the process ends.
DialogState& State() {
  static DialogState* const state = new DialogState;
  return *state;
}

template <typename Move>
void MoveBar(Control control, Move move) {
  State().Change([&](DialogModel& model) {
    Bar* const bar = model.FindBar(control);
    if (bar == nullptr) return;
    move(*bar);
    if (control == Control::kFileBar) model.fileBarMoved = true;
  });
}

template <typename Change>
void ChangeButton(Control control, Change change) {
  State().Change([&](DialogModel& model) {
    ButtonState* const button = model.FindButton(control);
    if (button != nullptr) change(*button);
  });
}

}  // namespace

void dialog::ShowPage(const std::string& url) {
  State().Change([&](DialogModel& model) { model.page = url; });
}

void SetStatusText(const std::string& text) {
  State().Change([&](DialogModel& model) { model.status = text; });
}

void SetBarRange(Control bar, std::int32_t lowest, std::int32_t highest) {
  State().Change([&](DialogModel& model) {
    if (Bar* const found = model.FindBar(bar)) SetRange(*found, lowest, highest);
    if (bar == Control::kFileBar) model.fileBarMoved = false;
  });
}

void SetBarStep(Control bar, std::int32_t step) {
  State().Change([&](DialogModel& model) {
    if (Bar* const found = model.FindBar(bar)) found->step = step;
  });
}

void SetBarPosition(Control bar, std::int32_t position) {
  MoveBar(bar, [position](Bar& moved) { SetPosition(moved, position); });
}

void MoveBarPosition(Control bar, std::int32_t difference) {
  MoveBar(bar, [difference](Bar& moved) {
    SetPosition(moved, std::int64_t{moved.position} + difference);
  });
}

void StepBar(Control bar) {
  MoveBar(bar, [](Bar& moved) { StepOnce(moved); });
}

void EnableControl(Control control, bool enable) {
  ChangeButton(control, [enable](ButtonState& button) { button.enabled = enable; });
}

void SetButtonCaption(Control button, const std::string& text) {
  ChangeButton(button, [&](ButtonState& changed) { changed.caption = text; });
}

// A terminal keeps its own icon, and a window gets its icon with its class.
void SetDialogIcon() {}

void ShowMessageBox(const std::string& text, const std::string& caption, std::uint32_t type) {
  const BoxText box{text, caption, type};
  if (!State().IsDialogThread()) {
    State().ShowBox(box);
  } else {
    dialog::ShowBoxInLoop(box);
  }
}

void AskToClose() {
  if (!State().IsDialogThread()) {
    State().AskToClose();
  } else {
    dialog::CloseInLoop();
  }
}

int RunUpdateDialog(const DialogHandlers& handlers) {
  const std::optional<int> result = dialog::RunLoop(State(), handlers);
  if (!result) return -1;
  handlers.destroyed();
  return *result;
}

void EndUpdateDialog(int result) { State().End(result); }

}  // namespace velmora::platform
