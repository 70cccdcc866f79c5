#include "platform/posix/desktop/toolkit.h"

#include <cstdio>

// Of the source that glib-compile-resources makes.
extern "C" void desktop_icon_register_resource(void);

namespace velmora::platform::desktop {
namespace {

constexpr char kIcons[] = "/velmora/icons";

}  // namespace

bool StartToolkit() {
  static const bool started = [] {
    // The formats of numbers in lists, logs and caches must not depend on the player's language.
    gtk_disable_setlocale();
    g_set_prgname(kApplicationName);
    if (gtk_init_check() == FALSE) return false;
    desktop_icon_register_resource();
    gtk_icon_theme_add_resource_path(gtk_icon_theme_get_for_display(gdk_display_get_default()),
                                     kIcons);
    gtk_window_set_default_icon_name(kApplicationName);
    return true;
  }();
  if (!started) {
    std::fputs(
        "VelmoraUpdate: there is no display to open a window on. Start it on a desktop, or use "
        "the\n"
        "patcher for terminals, which needs none.\n",
        stderr);
  }
  return started;
}

GtkWidget* NewLabel(const std::string& utf8) {
  GtkWidget* const label = gtk_label_new(utf8.c_str());
  PangoAttrList* const attributes = pango_attr_list_new();
  pango_attr_list_insert(attributes, pango_attr_language_new(pango_language_from_string("ja")));
  gtk_label_set_attributes(GTK_LABEL(label), attributes);
  pango_attr_list_unref(attributes);
  return label;
}

void SetMargins(GtkWidget* widget, int margin) {
  gtk_widget_set_margin_top(widget, margin);
  gtk_widget_set_margin_bottom(widget, margin);
  gtk_widget_set_margin_start(widget, margin);
  gtk_widget_set_margin_end(widget, margin);
}

void SetAccessibleName(GtkWidget* widget, const std::string& utf8) {
  gtk_accessible_update_property(GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                 utf8.c_str(), -1);
}

void AddShortcut(GtkWidget* window, guint key, GdkModifierType modifiers, GtkShortcutFunc pressed,
                 void* data) {
  GtkEventController* const controller = gtk_shortcut_controller_new();
  gtk_event_controller_set_propagation_phase(controller, GTK_PHASE_CAPTURE);
  gtk_shortcut_controller_add_shortcut(
      GTK_SHORTCUT_CONTROLLER(controller),
      gtk_shortcut_new(gtk_keyval_trigger_new(key, modifiers),
                       gtk_callback_action_new(pressed, data, nullptr)));
  gtk_widget_add_controller(window, controller);
}

}  // namespace velmora::platform::desktop
