// The information pane: the publisher's page, rendered by WebKit in processes of its own.
//
// The page is a guest. It can't read files, keeps nothing beyond the process, gets no permissions,
// and opens no dialogs. Links stay in the pane; what asks for a window of its own goes to the
// player's browser. A page that can't be had, or whose process crashes, leaves an empty pane. If
// the engine itself fails, the program starts again without the page. For the dialog's thread only;
// nothing here waits for the page.
#pragma once

#include <gtk/gtk.h>

#include <string>

namespace velmora::platform::desktop {

[[nodiscard]] GtkWidget* NewPane();

// Starts to load a page, the first and only time. `address` is UTF-8.
void LoadPage(GtkWidget* pane, const std::string& address);

}  // namespace velmora::platform::desktop
