#include "platform/posix/desktop/box.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/posix/desktop/toolkit.h"
#include "platform/utf8.h"

namespace velmora::platform::desktop {
namespace {

constexpr int kMargin = 18;
constexpr int kSpacing = 12;
constexpr std::size_t kWidestLine = 60;  // bytes, of two to a Japanese character

using Answered = std::function<void()>;
constexpr char kAnswered[] = "velmora-answered";

void Dismiss(GtkWidget* box) {
  // The callback may open the next box, so this one goes first.
  const Answered answered = *static_cast<Answered*>(g_object_get_data(G_OBJECT(box), kAnswered));
  gtk_window_destroy(GTK_WINDOW(box));
  answered();
}

gboolean OnCloseRequest(GtkWindow* box, void*) {
  Dismiss(GTK_WIDGET(box));
  return TRUE;
}

gboolean OnEscape(GtkWidget* box, GVariant*, void*) {
  Dismiss(box);
  return TRUE;
}

const char* IconFor(std::uint32_t type) {
  if (type == kBoxError) return "dialog-error";
  if (type == kBoxInformation) return "dialog-information";
  return nullptr;
}

bool HasLongLine(const std::string& text) {
  std::size_t length = 0;
  return std::ranges::any_of(text, [&](char c) {
    length = c == '\n' ? 0 : length + 1;
    return length > kWidestLine;
  });
}

// The icon, if the box has one, beside the text. Lines are wrapped only if they have to be: GTK 4.8
// measures labels that wrap too low when the line has a font of its own.
GtkWidget* NewMessage(const dialog::BoxText& box) {
  GtkWidget* const row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, kSpacing);
  if (const char* const name = IconFor(box.type)) {
    GtkWidget* const icon = gtk_image_new_from_icon_name(name);
    gtk_image_set_icon_size(GTK_IMAGE(icon), GTK_ICON_SIZE_LARGE);
    gtk_widget_set_valign(icon, GTK_ALIGN_START);
    gtk_box_append(GTK_BOX(row), icon);
  }
  GtkWidget* const text = NewLabel(ToUtf8(box.text));
  gtk_label_set_max_width_chars(GTK_LABEL(text), static_cast<int>(kWidestLine));
  gtk_label_set_wrap(GTK_LABEL(text), HasLongLine(box.text) ? TRUE : FALSE);
  gtk_label_set_wrap_mode(GTK_LABEL(text), PANGO_WRAP_WORD_CHAR);
  gtk_label_set_xalign(GTK_LABEL(text), 0);
  gtk_box_append(GTK_BOX(row), text);
  return row;
}

}  // namespace

GtkWidget* OpenBox(GtkWindow* owner, const dialog::BoxText& box, std::function<void()> answered) {
  GtkWidget* const window =
      GTK_WIDGET(g_object_new(GTK_TYPE_WINDOW, "accessible-role", GTK_ACCESSIBLE_ROLE_ALERT_DIALOG,
                              "resizable", FALSE, "title", ToUtf8(box.caption).c_str(), nullptr));
  g_object_set_data_full(G_OBJECT(window), kAnswered, new Answered(std::move(answered)),
                         [](void* data) { delete static_cast<Answered*>(data); });
  SetAccessibleName(window, ToUtf8(box.caption + ": " + box.text));
  gtk_window_set_transient_for(GTK_WINDOW(window), owner);
  gtk_window_set_destroy_with_parent(GTK_WINDOW(window), TRUE);
  gtk_window_set_modal(GTK_WINDOW(window), owner != nullptr ? TRUE : FALSE);
  g_signal_connect(window, "close-request", G_CALLBACK(OnCloseRequest), nullptr);
  AddShortcut(window, GDK_KEY_Escape, GdkModifierType(0), OnEscape, nullptr);

  GtkWidget* const content = gtk_box_new(GTK_ORIENTATION_VERTICAL, kMargin);
  SetMargins(content, kMargin);
  gtk_box_append(GTK_BOX(content), NewMessage(box));
  GtkWidget* const ok = gtk_button_new_with_label("OK");
  gtk_widget_set_halign(ok, GTK_ALIGN_END);
  g_signal_connect_swapped(ok, "clicked", G_CALLBACK(Dismiss), window);
  gtk_box_append(GTK_BOX(content), ok);
  gtk_window_set_child(GTK_WINDOW(window), content);
  gtk_window_set_default_widget(GTK_WINDOW(window), ok);
  gtk_widget_grab_focus(ok);
  gtk_window_present(GTK_WINDOW(window));
  return window;
}

}  // namespace velmora::platform::desktop
