#include "support/recording_dialog.h"

#include <mutex>

#include "base/text.h"
#include "platform/browser.h"
#include "platform/dialog.h"

namespace velmora::test {
namespace {

std::mutex mutex;
DialogRecord record;

void Note(const std::string& event) {
  std::function<void(const std::string&)> onEvent;
  {
    const std::lock_guard lock(mutex);
    record.events.push_back(event);
    onEvent = record.onEvent;
  }
  if (onEvent) onEvent(event);
}

template <typename... Numbers>
void Note(const std::string& name, platform::Control control, Numbers... numbers) {
  std::string event = name + " " + std::to_string(static_cast<int>(control));
  ((event += " " + std::to_string(numbers)), ...);
  Note(event);
}

}  // namespace

void ResetDialog() {
  const std::lock_guard lock(mutex);
  record = DialogRecord();
}

DialogRecord& Dialog() { return record; }

std::vector<std::string> EventsOf(const std::string& start) {
  std::vector<std::string> found;
  for (const std::string& event : record.events) {
    if (event.starts_with(start)) found.push_back(event);
  }
  return found;
}

}  // namespace velmora::test

namespace velmora::platform {

using test::Note;

void SetStatusText(const std::string& text) { Note("status " + text); }
void SetBarRange(Control bar, std::int32_t low, std::int32_t high) {
  Note("range", bar, low, high);
}
void SetBarStep(Control bar, std::int32_t step) { Note("step", bar, step); }
void SetBarPosition(Control bar, std::int32_t position) { Note("position", bar, position); }
void MoveBarPosition(Control bar, std::int32_t difference) { Note("move", bar, difference); }
void StepBar(Control bar) { Note("stepit", bar); }
void EnableControl(Control control, bool enable) { Note("enable", control, enable ? 1 : 0); }
void SetButtonCaption(Control button, const std::string& text) {
  Note(FormatText("caption %d %s", static_cast<int>(button), text.c_str()));
}
void SetDialogIcon() { Note("icon"); }
void ShowMessageBox(const std::string& text, const std::string& caption, std::uint32_t type) {
  Note(FormatText("box %X %s|%s", type, caption.c_str(), text.c_str()));
}
void AskToClose() { Note("close"); }
int RunUpdateDialog(const DialogHandlers&) { return -1; }
void EndUpdateDialog(int result) { Note("end " + std::to_string(result)); }

PaneControl GetPaneControl() { return 1; }
void ReleasePaneControl(PaneControl) { Note("release control"); }
Browser GetBrowser(PaneControl) { return test::Dialog().browser; }
void ReleaseBrowser(Browser) { Note("release browser"); }
void SetBrowserResizable(Browser, int value) { Note("resizable " + std::to_string(value)); }
void SetBrowserFullScreen(Browser, int value) { Note("full screen " + std::to_string(value)); }
void SetBrowserDropTarget(Browser, int value) { Note("drop target " + std::to_string(value)); }
void SetBrowserRegistered(Browser, int value) { Note("registered " + std::to_string(value)); }
void NavigateBrowser(Browser, const std::string& url) { Note("navigate " + url); }

}  // namespace velmora::platform
