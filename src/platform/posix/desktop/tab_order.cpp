#include "platform/posix/desktop/tab_order.h"

#include <algorithm>
#include <utility>

namespace velmora::platform::desktop {
namespace {

struct TabOrderBox {
  GtkBox parent;
  std::vector<GtkWidget*>* order;
};

struct TabOrderBoxClass {
  GtkBoxClass parent;
};

GtkWidgetClass* parentClass = nullptr;

TabOrderBox* OrderOf(void* box) { return static_cast<TabOrderBox*>(box); }

bool Contains(GtkWidget* widget, GtkWidget* focus) {
  return focus != nullptr && (focus == widget || gtk_widget_is_ancestor(focus, widget) == TRUE);
}

// The first widget of the order that takes the focus, from the one after that which has it on.
gboolean OnFocus(GtkWidget* box, GtkDirectionType direction) {
  if (direction != GTK_DIR_TAB_FORWARD && direction != GTK_DIR_TAB_BACKWARD) {
    return parentClass->focus(box, direction);
  }
  std::vector<GtkWidget*> order = *OrderOf(box)->order;
  if (direction == GTK_DIR_TAB_BACKWARD) std::ranges::reverse(order);
  GtkWidget* const focus = gtk_root_get_focus(gtk_widget_get_root(box));
  const auto last =
      std::ranges::find_if(order, [=](GtkWidget* each) { return Contains(each, focus); });
  if (last != order.end()) std::rotate(order.begin(), std::next(last), order.end());
  return std::ranges::any_of(
      order, [=](GtkWidget* each) { return gtk_widget_child_focus(each, direction) == TRUE; });
}

void OnFinalize(GObject* box) {
  delete OrderOf(box)->order;
  G_OBJECT_CLASS(parentClass)->finalize(box);
}

void InitClass(void* type, void*) {
  parentClass = static_cast<GtkWidgetClass*>(g_type_class_peek_parent(type));
  GTK_WIDGET_CLASS(type)->focus = OnFocus;
  G_OBJECT_CLASS(type)->finalize = OnFinalize;
}

void InitInstance(GTypeInstance* box, void*) { OrderOf(box)->order = new std::vector<GtkWidget*>; }

GType TabOrderBoxType() {
  static const GType type =
      g_type_register_static_simple(GTK_TYPE_BOX, "VelmoraTabOrderBox", sizeof(TabOrderBoxClass),
                                    InitClass, sizeof(TabOrderBox), InitInstance, GTypeFlags(0));
  return type;
}

}  // namespace

GtkWidget* NewTabOrderBox() {
  return GTK_WIDGET(
      g_object_new(TabOrderBoxType(), "orientation", GTK_ORIENTATION_VERTICAL, nullptr));
}

void SetTabOrder(GtkWidget* box, std::vector<GtkWidget*> widgets) {
  *OrderOf(box)->order = std::move(widgets);
}

}  // namespace velmora::platform::desktop
