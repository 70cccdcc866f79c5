// A box whose widgets the Tab key reaches in an order of their own, not in that of their places.
#pragma once

#include <gtk/gtk.h>

#include <vector>

namespace velmora::platform::desktop {

[[nodiscard]] GtkWidget* NewTabOrderBox();

// `widgets` lie anywhere in the box, which outlives them.
void SetTabOrder(GtkWidget* box, std::vector<GtkWidget*> widgets);

}  // namespace velmora::platform::desktop
