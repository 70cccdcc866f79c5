#include "ui/information_pane.h"

#include <utility>

#include "base/texts.h"
#include "platform/dialog.h"
#include "settings/patcher_settings.h"

namespace velmora {
namespace {

constexpr int kEndedByPane = 0;

platform::Browser informationBrowser = 0;

}  // namespace

platform::PaneControl StartInformationPane() {
  const platform::PaneControl control = platform::GetPaneControl();
  if (control == 0) return control;

  informationBrowser = platform::GetBrowser(control);
  if (informationBrowser == 0) {
    platform::ShowMessageBox(texts::kPaneFailed, texts::kErrorCaption, platform::kBoxPlain);
    platform::EndUpdateDialog(kEndedByPane);
    return control;
  }
  platform::SetBrowserResizable(informationBrowser, 0);
  platform::SetBrowserFullScreen(informationBrowser, 1);
  platform::SetBrowserDropTarget(informationBrowser, 0);
  platform::SetBrowserRegistered(informationBrowser, 0);
  platform::NavigateBrowser(informationBrowser, Settings.InformationUrl);
  return control;
}

void CloseInformationPane() {
  const platform::Browser browser = std::exchange(informationBrowser, 0);
  if (browser != 0) platform::ReleaseBrowser(browser);
}

}  // namespace velmora
