#include "platform/browser.h"

#include <windows.h>
// After windows.h, which it needs.
#include <exdisp.h>
#include <oleauto.h>

#include "platform/dialog.h"
#include "platform/win32/control_host.h"
#include "platform/win32/dialog.h"

namespace velmora::platform {
namespace {

IWebBrowser2& BrowserOf(Browser browser) { return *reinterpret_cast<IWebBrowser2*>(browser); }

// Not normalised: the browser gets the number itself.
VARIANT_BOOL ToVariantBool(int value) { return static_cast<VARIANT_BOOL>(value); }

// From the thread's ANSI code page. Null if memory runs out.
BSTR AllocateBrowserText(const std::string& text) {
  const int bytes = static_cast<int>(text.size());
  const int length = MultiByteToWideChar(CP_THREAD_ACP, 0, text.data(), bytes, nullptr, 0);
  const BSTR wide = SysAllocStringLen(nullptr, static_cast<UINT>(length));
  if (wide != nullptr) MultiByteToWideChar(CP_THREAD_ACP, 0, text.data(), bytes, wide, length);
  return wide;
}

// If memory runs out, the browser gets that error in place of the text.
VARIANT BrowserText(const std::string& text) {
  VARIANT value;
  VariantInit(&value);
  if (const BSTR wide = AllocateBrowserText(text)) {
    V_VT(&value) = VT_BSTR;
    V_BSTR(&value) = wide;
  } else {
    V_VT(&value) = VT_ERROR;
    V_ERROR(&value) = E_OUTOFMEMORY;
  }
  return value;
}

}  // namespace

PaneControl GetPaneControl() {
  const HWND pane = GetDlgItem(DialogWindow(), static_cast<int>(Control::kInformationPane));
  return reinterpret_cast<PaneControl>(GetHostedControl(pane));
}

void ReleasePaneControl(PaneControl control) { reinterpret_cast<IUnknown*>(control)->Release(); }

Browser GetBrowser(PaneControl control) {
  IWebBrowser2* browser = nullptr;
  reinterpret_cast<IUnknown*>(control)->QueryInterface(IID_PPV_ARGS(&browser));
  return reinterpret_cast<Browser>(browser);
}

void ReleaseBrowser(Browser browser) { BrowserOf(browser).Release(); }

void SetBrowserResizable(Browser browser, int value) {
  BrowserOf(browser).put_Resizable(ToVariantBool(value));
}

void SetBrowserFullScreen(Browser browser, int value) {
  BrowserOf(browser).put_FullScreen(ToVariantBool(value));
}

void SetBrowserDropTarget(Browser browser, int value) {
  BrowserOf(browser).put_RegisterAsDropTarget(ToVariantBool(value));
}

void SetBrowserRegistered(Browser browser, int value) {
  BrowserOf(browser).put_RegisterAsBrowser(ToVariantBool(value));
}

void NavigateBrowser(Browser browser, const std::string& url) {
  VARIANT page = BrowserText(url);
  VARIANT none;
  VariantInit(&none);
  BrowserOf(browser).Navigate2(&page, &none, &none, &none, &none);
  VariantClear(&none);
  VariantClear(&page);
}

}  // namespace velmora::platform
