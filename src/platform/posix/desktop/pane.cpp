#include "platform/posix/desktop/pane.h"

#include <webkit/webkit.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "platform/posix/desktop/rescue.h"

namespace velmora::platform::desktop {
namespace {

constexpr char kEmpty[] = "empty";
constexpr char kPage[] = "page";
constexpr unsigned kFirstError = 400;  // of the status codes (RFC 9110)

// What a reader needs of the context menu.
constexpr std::array kMenu = {
    WEBKIT_CONTEXT_MENU_ACTION_OPEN_LINK, WEBKIT_CONTEXT_MENU_ACTION_COPY_LINK_TO_CLIPBOARD,
    WEBKIT_CONTEXT_MENU_ACTION_GO_BACK,   WEBKIT_CONTEXT_MENU_ACTION_GO_FORWARD,
    WEBKIT_CONTEXT_MENU_ACTION_STOP,      WEBKIT_CONTEXT_MENU_ACTION_RELOAD,
    WEBKIT_CONTEXT_MENU_ACTION_COPY,      WEBKIT_CONTEXT_MENU_ACTION_SELECT_ALL,
};

bool IsOfTheWeb(const char* address) {
  const char* const scheme = g_uri_peek_scheme(address);
  return scheme != nullptr &&
         (std::string_view(scheme) == "http" || std::string_view(scheme) == "https");
}

// Addresses without a server, which pages make themselves.
bool IsOfThePage(const char* address) {
  const char* const scheme = g_uri_peek_scheme(address);
  if (scheme == nullptr) return false;
  constexpr std::array<std::string_view, 3> kSchemes = {"about", "blob", "data"};
  return std::ranges::find(kSchemes, scheme) != kSchemes.end();
}

void OpenInBrowser(const char* address) {
  if (IsOfTheWeb(address)) {
    g_app_info_launch_default_for_uri_async(address, nullptr, nullptr, nullptr, nullptr);
  }
}

// As browsers complete what their users type.
std::string WithScheme(const std::string& address) {
  const bool isComplete = address.find("://") != std::string::npos || IsOfThePage(address.c_str());
  return isComplete ? address : "http://" + address;
}

WebKitNavigationAction* ActionOf(WebKitPolicyDecision* decision) {
  return webkit_navigation_policy_decision_get_navigation_action(
      WEBKIT_NAVIGATION_POLICY_DECISION(decision));
}

const char* AddressOf(WebKitNavigationAction* action) {
  return webkit_uri_request_get_uri(webkit_navigation_action_get_request(action));
}

bool IsAllowedAnswer(WebKitPolicyDecision* decision) {
  auto* const response = WEBKIT_RESPONSE_POLICY_DECISION(decision);
  if (webkit_response_policy_decision_is_mime_type_supported(response) == FALSE) return false;
  const bool isWholePage =
      webkit_response_policy_decision_is_main_frame_main_resource(response) == TRUE;
  const guint status =
      webkit_uri_response_get_status_code(webkit_response_policy_decision_get_response(response));
  return !isWholePage || status < kFirstError;
}

gboolean OnDecidePolicy(WebKitWebView*, WebKitPolicyDecision* decision,
                        WebKitPolicyDecisionType type, void*) {
  bool isAllowed = true;
  if (type == WEBKIT_POLICY_DECISION_TYPE_RESPONSE) {
    isAllowed = IsAllowedAnswer(decision);
  } else {
    const char* const address = AddressOf(ActionOf(decision));
    isAllowed = IsOfTheWeb(address) || IsOfThePage(address);
  }
  if (isAllowed) {
    webkit_policy_decision_use(decision);
  } else {
    webkit_policy_decision_ignore(decision);
  }
  return TRUE;
}

// A page that asks for a window gets none, and only a player's click opens the browser.
GtkWidget* OnCreate(WebKitWebView*, WebKitNavigationAction* action, void*) {
  if (webkit_navigation_action_is_user_gesture(action) == TRUE) OpenInBrowser(AddressOf(action));
  return nullptr;
}

gboolean OnContextMenu(WebKitWebView*, WebKitContextMenu* menu, WebKitHitTestResult*, void*) {
  GList* const items = g_list_copy(webkit_context_menu_get_items(menu));
  for (GList* each = items; each != nullptr; each = each->next) {
    auto* const item = WEBKIT_CONTEXT_MENU_ITEM(each->data);
    const auto action = webkit_context_menu_item_get_stock_action(item);
    if (std::ranges::find(kMenu, action) == kMenu.end()) webkit_context_menu_remove(menu, item);
  }
  g_list_free(items);
  return webkit_context_menu_get_n_items(menu) == 0 ? TRUE : FALSE;
}

// Until a page has arrived, the pane stays as it was.
void OnLoadChanged(WebKitWebView*, WebKitLoadEvent event, void* pane) {
  if (event == WEBKIT_LOAD_COMMITTED) gtk_stack_set_visible_child_name(GTK_STACK(pane), kPage);
}

void OnProcessTerminated(WebKitWebView*, WebKitWebProcessTerminationReason, void* pane) {
  gtk_stack_set_visible_child_name(GTK_STACK(pane), kEmpty);
}

gboolean OnPermissionRequest(WebKitWebView*, WebKitPermissionRequest* request, void*) {
  webkit_permission_request_deny(request);
  return TRUE;
}

gboolean OnAuthenticate(WebKitWebView*, WebKitAuthenticationRequest* request, void*) {
  webkit_authentication_request_cancel(request);
  return TRUE;
}

gboolean OnFileChooser(WebKitWebView*, WebKitFileChooserRequest* request, void*) {
  webkit_file_chooser_request_cancel(request);
  return TRUE;
}

void OnDownload(WebKitNetworkSession*, WebKitDownload* download, void*) {
  webkit_download_cancel(download);
}

// Tells WebKit that the page's wish for an error page, a dialog, a print or a notification is
// served.
gboolean Served() { return TRUE; }

WebKitSettings* NewSettings() {
  WebKitSettings* const settings = webkit_settings_new();
  // A page of news needs no graphics card, whose memory and drivers the game is about to use.
  webkit_settings_set_hardware_acceleration_policy(settings,
                                                   WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER);
  webkit_settings_set_enable_webgl(settings, FALSE);
  webkit_settings_set_enable_fullscreen(settings, FALSE);
  return settings;
}

GtkWidget* NewView(GtkWidget* pane) {
  WebKitNetworkSession* const session = webkit_network_session_new_ephemeral();
  g_signal_connect(session, "download-started", G_CALLBACK(OnDownload), nullptr);
  WebKitSettings* const settings = NewSettings();
  auto* const view = GTK_WIDGET(g_object_new(WEBKIT_TYPE_WEB_VIEW, "network-session", session,
                                             "settings", settings, nullptr));
  g_object_unref(session);
  g_object_unref(settings);
  webkit_web_context_set_cache_model(webkit_web_view_get_context(WEBKIT_WEB_VIEW(view)),
                                     WEBKIT_CACHE_MODEL_DOCUMENT_VIEWER);
  const auto connect = [=](const char* signal, GCallback handler) {
    g_signal_connect(view, signal, handler, pane);
  };
  connect("decide-policy", G_CALLBACK(OnDecidePolicy));
  connect("create", G_CALLBACK(OnCreate));
  connect("context-menu", G_CALLBACK(OnContextMenu));
  connect("load-changed", G_CALLBACK(OnLoadChanged));
  connect("web-process-terminated", G_CALLBACK(OnProcessTerminated));
  connect("permission-request", G_CALLBACK(OnPermissionRequest));
  connect("authenticate", G_CALLBACK(OnAuthenticate));
  connect("run-file-chooser", G_CALLBACK(OnFileChooser));
  for (const char* const signal : {"load-failed", "load-failed-with-tls-errors", "print",
                                   "script-dialog", "show-notification"}) {
    connect(signal, G_CALLBACK(Served));
  }
  return view;
}

}  // namespace

GtkWidget* NewPane() {
  GtkWidget* const pane = gtk_stack_new();
  gtk_stack_add_named(GTK_STACK(pane), gtk_box_new(GTK_ORIENTATION_VERTICAL, 0), kEmpty);
  gtk_widget_set_hexpand(pane, TRUE);
  gtk_widget_set_vexpand(pane, TRUE);
  return pane;
}

void LoadPage(GtkWidget* pane, const std::string& address) {
  if (StartsWithoutPage()) return;
  RestartOnAbort();
  GtkWidget* const view = NewView(pane);
  gtk_stack_add_named(GTK_STACK(pane), view, kPage);
  webkit_web_view_load_uri(WEBKIT_WEB_VIEW(view), WithScheme(address).c_str());
}

}  // namespace velmora::platform::desktop
