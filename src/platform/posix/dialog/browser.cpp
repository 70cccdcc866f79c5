// The page's address is a part of the dialog's model. A terminal shows the address, a desktop the
// page.
#include "platform/browser.h"

#include "platform/posix/dialog/page.h"

namespace velmora::platform {
namespace {

constexpr PaneControl kPane = 1;
constexpr Browser kBrowser = 1;

}  // namespace

PaneControl GetPaneControl() { return kPane; }

void ReleasePaneControl(PaneControl) {}

Browser GetBrowser(PaneControl) { return kBrowser; }

void ReleaseBrowser(Browser) {}

void SetBrowserResizable(Browser, int) {}

void SetBrowserFullScreen(Browser, int) {}

void SetBrowserDropTarget(Browser, int) {}

void SetBrowserRegistered(Browser, int) {}

void NavigateBrowser(Browser, const std::string& url) { dialog::ShowPage(url); }

}  // namespace velmora::platform
