// Message boxes.
#pragma once

#include <gtk/gtk.h>

#include <functional>

#include "platform/posix/dialog/model.h"

namespace velmora::platform::desktop {

// Shows a message box, over `owner` if there is one, which takes no input until the player has
// dismissed the box. Then the box closes and `answered` is called, once. Destroying the window
// closes the box without that.
GtkWidget* OpenBox(GtkWindow* owner, const dialog::BoxText& box, std::function<void()> answered);

}  // namespace velmora::platform::desktop
