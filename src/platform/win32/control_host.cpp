#include "platform/win32/control_host.h"

#include <mshtmhst.h>
#include <ocidl.h>
#include <oleauto.h>
#include <olectl.h>
#include <wrl/client.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <iterator>
#include <mutex>
#include <new>
#include <utility>

namespace velmora::platform {
namespace {

using Microsoft::WRL::ComPtr;

constexpr char kHostClass[] = "AtlAxWin71";

UINT getHostMessage = 0;
UINT getControlMessage = 0;
ATOM hostClass = 0;

// COM's interfaces have no virtual destructors: only Release deletes an object.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// The site that a control asks about its surroundings. It keeps page and dialog apart: the control
// gets the host window's area, but no menus, tool bars or status line.
class ControlHost final : public IOleClientSite,
                          public IOleInPlaceSite,
                          public IOleInPlaceFrame,
                          public IOleControlSite,
                          public IDispatch,
                          public IDocHostUIHandler {
 public:
  explicit ControlHost(HWND window) : window_(window) {}

  // Creates the control and shows it. False on failure.
  bool OpenControl(const CLSID& classId);
  // Closes the control. After this the host only waits to be released.
  void CloseControl();

  // The control with a reference for the caller, or null.
  [[nodiscard]] IUnknown* GetControl() const;
  void FillWindow();
  void Focus();
  // True if the control handled the key.
  [[nodiscard]] bool OfferKey(MSG& message);

  // IUnknown
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** result) override;
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override;

  // IOleClientSite
  HRESULT STDMETHODCALLTYPE SaveObject() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetMoniker(DWORD, DWORD, IMoniker**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetContainer(IOleContainer** container) override;
  HRESULT STDMETHODCALLTYPE ShowObject() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE OnShowWindow(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE RequestNewObjectLayout() override { return E_NOTIMPL; }

  // IOleWindow
  HRESULT STDMETHODCALLTYPE GetWindow(HWND* window) override;
  HRESULT STDMETHODCALLTYPE ContextSensitiveHelp(BOOL) override { return E_NOTIMPL; }

  // IOleInPlaceSite
  HRESULT STDMETHODCALLTYPE CanInPlaceActivate() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE OnInPlaceActivate() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE OnUIActivate() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetWindowContext(IOleInPlaceFrame** frame,
                                             IOleInPlaceUIWindow** document, RECT* area, RECT* clip,
                                             OLEINPLACEFRAMEINFO* info) override;
  HRESULT STDMETHODCALLTYPE Scroll(SIZE) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE OnUIDeactivate(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE OnInPlaceDeactivate() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE DiscardUndoState() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DeactivateAndUndo() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE OnPosRectChange(const RECT*) override { return E_NOTIMPL; }

  // IOleInPlaceUIWindow and IOleInPlaceFrame
  HRESULT STDMETHODCALLTYPE GetBorder(RECT*) override { return INPLACE_E_NOTOOLSPACE; }
  HRESULT STDMETHODCALLTYPE RequestBorderSpace(const BORDERWIDTHS*) override {
    return INPLACE_E_NOTOOLSPACE;
  }
  HRESULT STDMETHODCALLTYPE SetBorderSpace(const BORDERWIDTHS*) override {
    return INPLACE_E_NOTOOLSPACE;
  }
  HRESULT STDMETHODCALLTYPE SetActiveObject(IOleInPlaceActiveObject*, LPCOLESTR) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE InsertMenus(HMENU, OLEMENUGROUPWIDTHS*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetMenu(HMENU, HOLEMENU, HWND) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE RemoveMenus(HMENU) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetStatusText(LPCOLESTR) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE TranslateAccelerator(MSG*, WORD) override { return S_FALSE; }

  // IOleInPlaceFrame and IDocHostUIHandler
  HRESULT STDMETHODCALLTYPE EnableModeless(BOOL) override { return S_OK; }

  // IOleControlSite
  HRESULT STDMETHODCALLTYPE OnControlInfoChanged() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE LockInPlaceActive(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetExtendedControl(IDispatch** control) override;
  HRESULT STDMETHODCALLTYPE TransformCoords(POINTL*, POINTF*, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE TranslateAccelerator(MSG*, DWORD) override { return S_FALSE; }
  HRESULT STDMETHODCALLTYPE OnFocus(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE ShowPropertyFrame() override { return E_NOTIMPL; }

  // IDispatch: the ambient properties
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID property, REFIID, LCID, WORD flags, DISPPARAMS*,
                                   VARIANT* result, EXCEPINFO*, UINT*) override;

  // IDocHostUIHandler. S_FALSE leaves the matter to the browser.
  HRESULT STDMETHODCALLTYPE ShowContextMenu(DWORD, POINT*, IUnknown*, IDispatch*) override {
    return S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE GetHostInfo(DOCHOSTUIINFO* info) override;
  // With S_OK the browser adds no menus or tool bars of its own.
  HRESULT STDMETHODCALLTYPE ShowUI(DWORD, IOleInPlaceActiveObject*, IOleCommandTarget*,
                                   IOleInPlaceFrame*, IOleInPlaceUIWindow*) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE HideUI() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE UpdateUI() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE OnDocWindowActivate(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE OnFrameWindowActivate(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE ResizeBorder(const RECT*, IOleInPlaceUIWindow*, BOOL) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE TranslateAccelerator(MSG*, const GUID*, DWORD) override {
    return S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE GetOptionKeyPath(LPOLESTR* key, DWORD) override;
  HRESULT STDMETHODCALLTYPE GetDropTarget(IDropTarget*, IDropTarget**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetExternal(IDispatch** external) override;
  HRESULT STDMETHODCALLTYPE TranslateUrl(DWORD, LPWSTR, LPWSTR* translated) override;
  HRESULT STDMETHODCALLTYPE FilterDataObject(IDataObject*, IDataObject** filtered) override;

 private:
  ~ControlHost() = default;

  [[nodiscard]] RECT ClientArea() const;
  [[nodiscard]] bool ShowControl();
  HRESULT DoVerb(IOleObject& object, LONG verb);

  std::atomic<ULONG> references_ = 1;
  HWND window_;
  ComPtr<IUnknown> control_;
};

#pragma GCC diagnostic pop

bool ControlHost::OpenControl(const CLSID& classId) {
  const HRESULT created = CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER,
                                           IID_PPV_ARGS(control_.ReleaseAndGetAddressOf()));
  return SUCCEEDED(created) && ShowControl();
}

bool ControlHost::ShowControl() {
  ComPtr<IOleObject> object;
  // A control without a user interface is hosted, too.
  if (FAILED(control_.As(&object))) return true;
  if (FAILED(object->SetClientSite(this))) return false;
  ComPtr<IPersistStreamInit> state;
  if (SUCCEEDED(control_.As(&state)) && FAILED(state->InitNew())) return false;
  return SUCCEEDED(DoVerb(*object.Get(), OLEIVERB_INPLACEACTIVATE));
}

void ControlHost::CloseControl() {
  // The control calls back while it closes, and must no longer be found then.
  const ComPtr<IUnknown> control = std::move(control_);
  ComPtr<IOleObject> object;
  if (control && SUCCEEDED(control.As(&object))) {
    object->Close(OLECLOSE_NOSAVE);
    object->SetClientSite(nullptr);
  }
  window_ = nullptr;
}

IUnknown* ControlHost::GetControl() const {
  if (control_) control_->AddRef();
  return control_.Get();
}

void ControlHost::FillWindow() {
  ComPtr<IOleInPlaceObject> object;
  if (!control_ || FAILED(control_.As(&object))) return;
  const RECT area = ClientArea();
  object->SetObjectRects(&area, &area);
}

void ControlHost::Focus() {
  ComPtr<IOleObject> object;
  if (control_ && SUCCEEDED(control_.As(&object))) DoVerb(*object.Get(), OLEIVERB_UIACTIVATE);
}

bool ControlHost::OfferKey(MSG& message) {
  ComPtr<IOleInPlaceActiveObject> active;
  if (!control_ || FAILED(control_.As(&active))) return false;
  return active->TranslateAccelerator(&message) == S_OK;
}

RECT ControlHost::ClientArea() const {
  RECT area = {};
  GetClientRect(window_, &area);
  return area;
}

HRESULT ControlHost::DoVerb(IOleObject& object, LONG verb) {
  const RECT area = ClientArea();
  return object.DoVerb(verb, nullptr, this, 0, window_, &area);
}

HRESULT ControlHost::QueryInterface(REFIID id, void** result) {
  if (id == IID_IUnknown || id == IID_IOleClientSite) {
    *result = static_cast<IOleClientSite*>(this);
  } else if (id == IID_IOleWindow || id == IID_IOleInPlaceSite) {
    *result = static_cast<IOleInPlaceSite*>(this);
  } else if (id == IID_IOleInPlaceUIWindow || id == IID_IOleInPlaceFrame) {
    *result = static_cast<IOleInPlaceFrame*>(this);
  } else if (id == IID_IOleControlSite) {
    *result = static_cast<IOleControlSite*>(this);
  } else if (id == IID_IDispatch) {
    *result = static_cast<IDispatch*>(this);
  } else if (id == IID_IDocHostUIHandler) {
    *result = static_cast<IDocHostUIHandler*>(this);
  } else {
    *result = nullptr;
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

ULONG ControlHost::Release() {
  const ULONG left = --references_;
  if (left == 0) delete this;
  return left;
}

HRESULT ControlHost::GetContainer(IOleContainer** container) {
  *container = nullptr;
  return E_NOINTERFACE;
}

HRESULT ControlHost::GetWindow(HWND* window) {
  *window = window_;
  return window_ == nullptr ? E_FAIL : S_OK;
}

HRESULT ControlHost::GetWindowContext(IOleInPlaceFrame** frame, IOleInPlaceUIWindow** document,
                                      RECT* area, RECT* clip, OLEINPLACEFRAMEINFO* info) {
  AddRef();
  *frame = this;
  *document = nullptr;
  *area = ClientArea();
  *clip = *area;
  info->fMDIApp = FALSE;
  info->hwndFrame = window_;
  info->haccel = nullptr;
  info->cAccelEntries = 0;
  return S_OK;
}

HRESULT ControlHost::GetExtendedControl(IDispatch** control) {
  *control = nullptr;
  return E_NOTIMPL;
}

HRESULT ControlHost::GetTypeInfoCount(UINT* count) {
  *count = 0;
  return S_OK;
}

void SetNumber(VARIANT& result, LONG number) {
  V_VT(&result) = VT_I4;
  V_I4(&result) = number;
}

HRESULT ControlHost::Invoke(DISPID property, REFIID, LCID, WORD flags, DISPPARAMS*, VARIANT* result,
                            EXCEPINFO*, UINT*) {
  if ((flags & DISPATCH_PROPERTYGET) == 0 || result == nullptr) return DISP_E_MEMBERNOTFOUND;
  switch (property) {
    case DISPID_AMBIENT_USERMODE:
      V_VT(result) = VT_BOOL;
      V_BOOL(result) = VARIANT_TRUE;
      return S_OK;
    case DISPID_AMBIENT_LOCALEID:
      SetNumber(*result, LOCALE_USER_DEFAULT);
      return S_OK;
    case DISPID_AMBIENT_FORECOLOR:
      SetNumber(*result, static_cast<LONG>(GetSysColor(COLOR_WINDOWTEXT)));
      return S_OK;
    case DISPID_AMBIENT_BACKCOLOR:
      SetNumber(*result, static_cast<LONG>(GetSysColor(COLOR_BTNFACE)));
      return S_OK;
    default:
      return DISP_E_MEMBERNOTFOUND;
  }
}

HRESULT ControlHost::GetHostInfo(DOCHOSTUIINFO* info) {
  info->dwFlags = DOCHOSTUIFLAG_NO3DBORDER;
  info->dwDoubleClick = DOCHOSTUIDBLCLK_DEFAULT;
  return S_OK;
}

HRESULT ControlHost::GetOptionKeyPath(LPOLESTR* key, DWORD) {
  *key = nullptr;
  return S_FALSE;
}

HRESULT ControlHost::GetExternal(IDispatch** external) {
  *external = nullptr;
  return E_NOTIMPL;
}

HRESULT ControlHost::TranslateUrl(DWORD, LPWSTR, LPWSTR* translated) {
  *translated = nullptr;
  return S_FALSE;
}

HRESULT ControlHost::FilterDataObject(IDataObject*, IDataObject** filtered) {
  *filtered = nullptr;
  return S_FALSE;
}

// The host window holds one reference to its ControlHost.

// Classes of one name share their atom, and another module may have one of this name.
bool IsHostWindow(HWND window) {
  const auto program = reinterpret_cast<ULONG_PTR>(GetModuleHandleA(nullptr));
  return GetClassLongPtrA(window, GCW_ATOM) == hostClass &&
         GetClassLongPtrA(window, GCLP_HMODULE) == program;
}

// The host of a window; null for a window of another class, and for one without a host. Comparing
// the window procedure wouldn't do: another program may have subclassed the window.
ControlHost* HostOf(HWND window) {
  if (!IsHostWindow(window)) return nullptr;
  return reinterpret_cast<ControlHost*>(GetWindowLongPtrA(window, GWLP_USERDATA));
}

void SetHost(HWND window, ControlHost* host) {
  SetWindowLongPtrA(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(host));
}

// Reads the class id in the window's caption and clears the caption, which nobody should see.
bool TakeClassId(HWND window, CLSID& classId) {
  wchar_t caption[64] = L"";
  GetWindowTextW(window, caption, static_cast<int>(std::size(caption)));
  SetWindowTextW(window, L"");
  // Unlike CLSIDFromString, this accepts nothing but an id in braces.
  return SUCCEEDED(IIDFromString(caption, &classId));
}

bool OnCreate(HWND window) {
  if (FAILED(OleInitialize(nullptr))) return false;
  CLSID classId;
  auto* const host =
      TakeClassId(window, classId) ? new (std::nothrow) ControlHost(window) : nullptr;
  if (host == nullptr) {
    OleUninitialize();
    return false;
  }
  // From here on OnFinalMessage cleans up, also when the control can't be opened.
  SetHost(window, host);
  return host->OpenControl(classId);
}

// The dialog manager looks for tab stops only inside children with WS_EX_CONTROLPARENT, so the host
// takes that style over from the control's window.
void OnChildCreated(HWND window, HWND child) {
  if ((GetWindowLongPtrA(child, GWL_EXSTYLE) & WS_EX_CONTROLPARENT) == 0) return;
  const LONG_PTR style = GetWindowLongPtrA(window, GWL_EXSTYLE);
  SetWindowLongPtrA(window, GWL_EXSTYLE, style | WS_EX_CONTROLPARENT);
}

void OnFinalMessage(HWND window, ControlHost& host) {
  // A window whose creation failed gets no WM_DESTROY.
  host.CloseControl();
  SetHost(window, nullptr);
  host.Release();
  OleUninitialize();
}

LRESULT CALLBACK HostWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_CREATE) return OnCreate(window) ? 0 : -1;
  ControlHost* const host = HostOf(window);
  if (host == nullptr) return DefWindowProcA(window, message, wParam, lParam);

  if (message == getControlMessage) return reinterpret_cast<LRESULT>(host->GetControl());
  if (message == getHostMessage) {
    host->AddRef();
    return reinterpret_cast<LRESULT>(static_cast<IUnknown*>(static_cast<IOleClientSite*>(host)));
  }
  switch (message) {
    case WM_SIZE:
      host->FillWindow();
      break;
    case WM_SETFOCUS:
      host->Focus();
      break;
    case WM_PARENTNOTIFY:
      if (LOWORD(wParam) == WM_CREATE) OnChildCreated(window, reinterpret_cast<HWND>(lParam));
      break;
    case WM_DESTROY:
      // While the control's windows still exist: it destroys them itself.
      host->CloseControl();
      break;
    case WM_NCDESTROY:
      OnFinalMessage(window, *host);
      break;
    default:
      break;
  }
  return DefWindowProcA(window, message, wParam, lParam);
}

void RegisterHostClass() {
  WNDCLASSEXA description = {};
  description.cbSize = sizeof description;
  const HINSTANCE instance = GetModuleHandleA(nullptr);
  if (GetClassInfoExA(instance, kHostClass, &description)) return;

  description = {};
  description.cbSize = sizeof description;
  description.style = CS_DBLCLKS;
  description.lpfnWndProc = HostWindowProc;
  description.hInstance = instance;
  description.hCursor = LoadCursorA(nullptr, IDC_ARROW);
  description.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
  description.lpszClassName = kHostClass;
  hostClass = RegisterClassExA(&description);
}

// The dialog manager would keep Tab, Enter and the arrow keys for itself, so a message filter
// offers keys to the control first.

ControlHost* EnclosingHost(HWND window) {
  for (; window != nullptr; window = GetAncestor(window, GA_PARENT)) {
    if (ControlHost* const host = HostOf(window)) return host;
  }
  return nullptr;
}

bool HandleControlKey(MSG& message) {
  if (message.message < WM_KEYFIRST || message.message > WM_KEYLAST) return false;
  ControlHost* const host = EnclosingHost(message.hwnd);
  if (host == nullptr) return false;
  if (host->OfferKey(message)) return true;
  // Tab leaves the page after its last link. Any other key stays in the page: Enter must not press
  // the dialog's default button. Characters pass, since the dialog manager ignores them.
  if (message.message != WM_KEYDOWN || message.wParam == VK_TAB) return false;
  TranslateMessage(&message);
  DispatchMessageW(&message);
  return true;
}

LRESULT CALLBACK FilterMessage(int code, WPARAM wParam, LPARAM lParam) {
  if (code == MSGF_DIALOGBOX && HandleControlKey(*reinterpret_cast<MSG*>(lParam))) return 1;
  return CallNextHookEx(nullptr, code, wParam, lParam);
}

// The filter is in force for this thread's dialogs while the object lives.
class KeyFilter {
 public:
  KeyFilter()
      : hook_(SetWindowsHookExW(WH_MSGFILTER, FilterMessage, nullptr, GetCurrentThreadId())) {}
  ~KeyFilter() {
    if (hook_ != nullptr) UnhookWindowsHookEx(hook_);
  }
  KeyFilter(const KeyFilter&) = delete;
  KeyFilter& operator=(const KeyFilter&) = delete;

 private:
  HHOOK hook_;
};

// An extended dialog template (DLGTEMPLATEEX) is a sequence of 16-bit words: a header of fixed
// size, then menu, window class, title and font, then the controls. Each control is aligned to 32
// bits and has a header, a window class, a text and data (DLGITEMTEMPLATEEX).

constexpr std::size_t kStyleIndex = 6;
constexpr std::size_t kControlCountIndex = 8;
constexpr std::size_t kHeaderWords = 13;
constexpr std::size_t kFontWords = 3;
constexpr std::size_t kControlHeaderWords = 12;
constexpr WORD kOrdinalMark = 0xFFFF;

const WORD* SkipString(const WORD* at) {
  while (*at != 0) ++at;
  return at + 1;
}

// A name is a string, or a mark and a number.
const WORD* SkipName(const WORD* at) { return *at == kOrdinalMark ? at + 2 : SkipString(at); }

const WORD* AlignToDword(const WORD* at) {
  return reinterpret_cast<std::uintptr_t>(at) % sizeof(DWORD) == 0 ? at : at + 1;
}

const WORD* FirstControl(const WORD* dialog) {
  const WORD* const menu = dialog + kHeaderWords;
  const WORD* const afterTitle = SkipString(SkipName(SkipName(menu)));
  const bool hasFont = (dialog[kStyleIndex] & DS_SETFONT) != 0;
  return AlignToDword(hasFont ? SkipString(afterTitle + kFontWords) : afterTitle);
}

const WORD* NextControl(const WORD* control) {
  const WORD* const dataSize = SkipName(SkipName(control + kControlHeaderWords));
  return AlignToDword(dataSize + 1 + (*dataSize + 1) / 2);
}

bool HasClassId(const WORD* control) { return control[kControlHeaderWords] == L'{'; }

struct Controls {
  const WORD* begin;
  const WORD* end;
  int classIds = 0;  // how many have a class id in place of a window class
};

Controls ScanControls(const WORD* dialog) {
  Controls controls = {.begin = FirstControl(dialog), .end = FirstControl(dialog)};
  for (WORD left = dialog[kControlCountIndex]; left > 0; --left) {
    if (HasClassId(controls.end)) ++controls.classIds;
    controls.end = NextControl(controls.end);
  }
  return controls;
}

// A copy of the template without the controls that have a class id: no window class is named so,
// and the whole dialog would fail. Null if memory runs out. The caller frees it by GlobalFree.
WORD* CopyWithoutClassIds(const WORD* dialog, const Controls& controls) {
  const auto words = static_cast<std::size_t>(controls.end - dialog);
  auto* const copy = static_cast<WORD*>(GlobalAlloc(GMEM_FIXED, words * sizeof(WORD)));
  if (copy == nullptr) return nullptr;
  WORD* out = std::copy(dialog, controls.begin, copy);
  for (const WORD* at = controls.begin; at != controls.end;) {
    const WORD* const next = NextControl(at);
    if (!HasClassId(at)) out = std::copy(at, next, out);
    at = next;
  }
  copy[kControlCountIndex] = static_cast<WORD>(copy[kControlCountIndex] - controls.classIds);
  return copy;
}

const WORD* LoadTemplate(HINSTANCE instance, WORD number) {
  const HRSRC resource = FindResourceA(instance, MAKEINTRESOURCEA(number), RT_DIALOG);
  if (resource == nullptr) return nullptr;
  return static_cast<const WORD*>(LockResource(LoadResource(instance, resource)));
}

INT_PTR ShowDialog(HINSTANCE instance, const WORD* dialog, HWND owner, DLGPROC procedure,
                   LPARAM parameter) {
  const KeyFilter filter;
  return DialogBoxIndirectParamW(instance, reinterpret_cast<const DLGTEMPLATE*>(dialog), owner,
                                 procedure, parameter);
}

}  // namespace

void AtlAxWinInit() {
  static std::mutex lock;
  const std::lock_guard guard(lock);
  getHostMessage = RegisterWindowMessageA("WM_ATLGETHOST");
  getControlMessage = RegisterWindowMessageA("WM_ATLGETCONTROL");
  RegisterHostClass();
}

// Initialisation data for controls (resource type 240) is ignored: it would belong to controls with
// a class id, and those are left out.
INT_PTR AtlAxDialogBox(HINSTANCE instance, WORD templateNumber, HWND owner, DLGPROC procedure,
                       LPARAM parameter) {
  AtlAxWinInit();
  const WORD* const dialog = LoadTemplate(instance, templateNumber);
  if (dialog == nullptr) return -1;
  const Controls controls = ScanControls(dialog);
  if (controls.classIds == 0) return ShowDialog(instance, dialog, owner, procedure, parameter);

  WORD* const copy = CopyWithoutClassIds(dialog, controls);
  if (copy == nullptr) return -1;
  const INT_PTR result = ShowDialog(instance, copy, owner, procedure, parameter);
  GlobalFree(copy);
  return result;
}

IUnknown* GetHostedControl(HWND hostWindow) {
  return reinterpret_cast<IUnknown*>(SendMessageA(hostWindow, getControlMessage, 0, 0));
}

}  // namespace velmora::platform
