// A terminal can't show a page, so the dialog shows its address.
#include "platform/browser.h"

#include "platform/posix/terminal/page.h"

namespace velmora::platform {
namespace {

constexpr PaneControl kPane = 1;
constexpr Browser kAddressLine = 1;

}  // namespace

PaneControl GetPaneControl() { return kPane; }

void ReleasePaneControl(PaneControl) {}

Browser GetBrowser(PaneControl) { return kAddressLine; }

void ReleaseBrowser(Browser) {}

void SetBrowserResizable(Browser, int) {}

void SetBrowserFullScreen(Browser, int) {}

void SetBrowserDropTarget(Browser, int) {}

void SetBrowserRegistered(Browser, int) {}

void NavigateBrowser(Browser, const std::string& url) { terminal::ShowPageAddress(url); }

}  // namespace velmora::platform
