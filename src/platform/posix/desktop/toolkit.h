// GTK as this program uses it. For the dialog's thread only.
#pragma once

#include <gtk/gtk.h>

#include <string>
#include <string_view>

namespace velmora::platform::desktop {

// Its name among the system's applications, icons and windows.
inline constexpr char kApplicationName[] = "velmora-update";

// Connects to the display. False, with the reason and the way out on the error stream, if there is
// none. May be called again.
[[nodiscard]] bool StartToolkit();

// A label whose characters have the shapes that Japanese readers expect, whatever the system's
// language.
[[nodiscard]] GtkWidget* NewLabel(const std::string& utf8);

// Space around a widget, in pixels.
void SetMargins(GtkWidget* widget, int margin);

// The name of a widget for screen readers.
void SetAccessibleName(GtkWidget* widget, const std::string& utf8);

// Has a key of the window call `pressed`, before any of its widgets gets the key.
void AddShortcut(GtkWidget* window, guint key, GdkModifierType modifiers, GtkShortcutFunc pressed,
                 void* data);

}  // namespace velmora::platform::desktop
