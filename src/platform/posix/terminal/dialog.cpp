// The update dialog on a terminal or, without one, as lines and a script.
#include "platform/dialog.h"

#include "platform/posix/terminal/loop.h"
#include "platform/posix/terminal/page.h"
#include "platform/posix/terminal/state.h"

namespace velmora::platform {
namespace {

using terminal::Bar;
using terminal::BoxText;
using terminal::ButtonState;
using terminal::DialogLoop;
using terminal::DialogModel;
using terminal::DialogState;

// Never destroyed: the worker may use it until the process ends.
DialogState& State() {
  static DialogState* const state = new DialogState;
  return *state;
}

// For the dialog's thread: its loop, null outside RunUpdateDialog.
DialogLoop* currentLoop = nullptr;

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

void terminal::ShowPageAddress(const std::string& url) {
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

// A terminal keeps its own icon.
void SetDialogIcon() {}

void ShowMessageBox(const std::string& text, const std::string& caption, std::uint32_t type) {
  const BoxText box{text, caption, type};
  if (!State().IsDialogThread()) {
    State().ShowBox(box);
  } else if (currentLoop != nullptr) {
    currentLoop->ShowBox(box);
  }
}

void AskToClose() {
  if (!State().IsDialogThread()) {
    State().AskToClose();
  } else if (currentLoop != nullptr) {
    currentLoop->Close();
  }
}

int RunUpdateDialog(const DialogHandlers& handlers) {
  DialogLoop loop(State(), handlers);
  if (!loop.Open()) return -1;
  currentLoop = &loop;
  const int result = loop.Run();
  currentLoop = nullptr;
  handlers.destroyed();
  return result;
}

void EndUpdateDialog(int result) { State().End(result); }

}  // namespace velmora::platform
