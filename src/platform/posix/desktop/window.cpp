#include "platform/posix/desktop/window.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "base/ascii.h"
#include "base/texts.h"
#include "platform/posix/desktop/pane.h"
#include "platform/posix/desktop/tab_order.h"
#include "platform/posix/desktop/toolkit.h"
#include "platform/utf8.h"

namespace velmora::platform::desktop {
namespace {

using dialog::Bar;
using dialog::ButtonKind;
using dialog::ButtonState;
using dialog::DialogModel;
using dialog::kButtons;

// Of the dialog template, in dialog units.
constexpr int kWidth = 596;
constexpr int kHeight = 329;
constexpr int kMargin = 6;
constexpr int kStatusHeight = 18;
constexpr int kButtonHeight = 18;
// Below that, the pane is of no use.
constexpr int kLeastPaneHeight = 60;

// The window's look is the theme's, except for what the template says: no rounded edges between
// pane and frame, and bars that can be read.
constexpr char kStyle[] =
    "progressbar > trough, progressbar > trough > progress { min-height: 9px; }"
    "frame.status { border-radius: 0; }"
    ".details { font-size: smaller; }";

// A dialog unit is a quarter of the font's average width, and an eighth of its height.
struct DialogUnits {
  double x = 0;
  double y = 0;

  [[nodiscard]] int Across(int units) const { return static_cast<int>(std::lround(units * x)); }
  [[nodiscard]] int Down(int units) const { return static_cast<int>(std::lround(units * y)); }
};

struct TextSize {
  int width = 0;
  int height = 0;
};

TextSize SizeOf(GtkWidget* widget, const std::string& utf8) {
  PangoLayout* const layout = gtk_widget_create_pango_layout(widget, utf8.c_str());
  TextSize size;
  pango_layout_get_pixel_size(layout, &size.width, &size.height);
  g_object_unref(layout);
  return size;
}

DialogUnits UnitsOf(GtkWidget* widget) {
  const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  const TextSize size = SizeOf(widget, letters);
  return {size.width / static_cast<double>(letters.size()) / 4, size.height / 8.0};
}

// Reserves the height of a sample text and no less than the template's, so that nothing moves when
// the text changes: lines of Japanese, of which digits alone are a case, are higher than others.
void ReserveHeight(GtkWidget* label, const std::string& sample, int units) {
  gtk_label_set_text(GTK_LABEL(label), sample.c_str());
  int height = 0;
  gtk_widget_measure(label, GTK_ORIENTATION_VERTICAL, -1, &height, nullptr, nullptr, nullptr);
  gtk_label_set_text(GTK_LABEL(label), "");
  gtk_widget_set_size_request(label, -1, std::max(height, UnitsOf(label).Down(units)));
}

void AddStyle() {
  GtkCssProvider* const provider = gtk_css_provider_new();
  gtk_css_provider_load_from_data(provider, kStyle, -1);
  gtk_style_context_add_provider_for_display(gdk_display_get_default(),
                                             GTK_STYLE_PROVIDER(provider),
                                             GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  g_object_unref(provider);
}

// Returns whether the text has changed.
bool ShowText(GtkWidget* label, const std::string& utf8) {
  if (utf8 == gtk_label_get_text(GTK_LABEL(label))) return false;
  gtk_label_set_text(GTK_LABEL(label), utf8.c_str());
  return true;
}

void ShowBar(GtkWidget* widget, const Bar& bar) {
  const double extent = static_cast<double>(bar.highest) - bar.lowest;
  const double done = static_cast<double>(bar.position) - bar.lowest;
  gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(widget), extent > 0 ? done / extent : 0);
}

void ShowButton(GtkWidget* widget, const ButtonState& button) {
  const std::string caption = ToUtf8(button.caption);
  if (ShowText(gtk_button_get_child(GTK_BUTTON(widget)), caption)) {
    SetAccessibleName(widget, caption);
  }
  gtk_widget_set_sensitive(widget, button.enabled ? TRUE : FALSE);
}

// Whole lines: the first is what happens, the second the path that it happens to.
std::string StatusText(const std::string& status) {
  std::string text = ToUtf8(status);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

GtkWidget* NewDetails(float alignment) {
  GtkWidget* const label = NewLabel("");
  gtk_widget_add_css_class(label, "dim-label");
  gtk_widget_add_css_class(label, "details");
  gtk_label_set_xalign(GTK_LABEL(label), alignment);
  gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
  gtk_widget_set_hexpand(label, TRUE);
  return label;
}

}  // namespace

Window::Window(Events events) : events_(std::move(events)) {
  AddStyle();
  window_ = gtk_window_new();
  gtk_window_set_title(handle(), ToUtf8(texts::kDialogTitle).c_str());
  for (std::size_t i = 0; i < kButtons.size(); ++i) presses_[i] = {&events_, kButtons[i].control};
  g_signal_connect(window_, "close-request", G_CALLBACK(OnCloseRequest),
                   const_cast<Events*>(&events_));
  Build();
  AddKeys();
}

Window::~Window() { gtk_window_destroy(handle()); }

void Window::Present() {
  gtk_window_present(handle());
  KeepFocus();
}

void Window::Build() {
  content_ = NewTabOrderBox();
  pane_ = NewPane();
  gtk_box_append(GTK_BOX(content_), pane_);
  gtk_box_append(GTK_BOX(content_), NewControls());
  gtk_window_set_child(handle(), content_);

  const DialogUnits units = UnitsOf(window_);
  gtk_widget_set_size_request(pane_, -1, units.Down(kLeastPaneHeight));
  gtk_window_set_default_size(handle(), units.Across(kWidth), units.Down(kHeight));

  // That of the template, where the pane isn't a tab stop: a page keeps the Tab key for its links.
  std::vector<GtkWidget*> order;
  for (const Control control :
       {Control::kStartGameButton, Control::kRecheckButton, Control::kOptionsButton,
        Control::kDirectXButton, Control::kScreenshotsButton}) {
    order.push_back(ButtonOf(control));
  }
  SetTabOrder(content_, std::move(order));
  gtk_window_set_default_widget(handle(), ButtonOf(Control::kStartGameButton));
}

// Columns of one width each, of which the progress takes five and each row of buttons two: nearly
// the template's proportions, whatever the width of the window.
GtkWidget* Window::NewControls() {
  constexpr int kProgressColumns = 5;
  constexpr int kButtonColumns = 2;
  const DialogUnits units = UnitsOf(window_);
  const int gap = units.Across(kMargin);
  GtkWidget* const grid = gtk_grid_new();
  gtk_grid_set_column_homogeneous(GTK_GRID(grid), TRUE);
  gtk_grid_set_column_spacing(GTK_GRID(grid), static_cast<guint>(gap));
  gtk_grid_set_row_spacing(GTK_GRID(grid), static_cast<guint>(gap) / 2);
  SetMargins(grid, gap);
  gtk_widget_set_vexpand(grid, FALSE);  // all spare height is the pane's

  gtk_grid_attach(GTK_GRID(grid), NewProgress(), 0, 0, kProgressColumns, 2);
  const auto attach = [&](Control control, int place, int row, int rows) {
    GtkWidget* const button = NewButton(control);
    gtk_widget_set_size_request(button, -1, units.Down(rows * kButtonHeight));
    gtk_grid_attach(GTK_GRID(grid), button, kProgressColumns + place * kButtonColumns, row,
                    kButtonColumns, rows);
  };
  attach(Control::kScreenshotsButton, 0, 0, 1);
  attach(Control::kDirectXButton, 0, 1, 1);
  attach(Control::kRecheckButton, 1, 0, 1);
  attach(Control::kOptionsButton, 1, 1, 1);
  attach(Control::kStartGameButton, 2, 0, 2);
  return grid;
}

// Both bars, the status line, and the line of figures. They take the width that the buttons leave.
GtkWidget* Window::NewProgress() {
  const DialogUnits units = UnitsOf(window_);
  GtkWidget* const box = gtk_box_new(GTK_ORIENTATION_VERTICAL, units.Down(1));
  fileBar_ = gtk_progress_bar_new();
  SetAccessibleName(fileBar_, ToUtf8(texts::kFileBarName));
  overallBar_ = gtk_progress_bar_new();
  SetAccessibleName(overallBar_, ToUtf8(texts::kOverallBarName));

  status_ = NewLabel("");
  gtk_label_set_xalign(GTK_LABEL(status_), 0);
  gtk_label_set_yalign(GTK_LABEL(status_), 0);
  // Of a long path the name at its end says more than the folders in its middle.
  gtk_label_set_ellipsize(GTK_LABEL(status_), PANGO_ELLIPSIZE_MIDDLE);
  gtk_widget_set_margin_start(status_, units.Across(1));
  GtkWidget* const frame = gtk_frame_new(nullptr);
  gtk_widget_add_css_class(frame, "status");
  gtk_widget_set_vexpand(frame, TRUE);
  gtk_frame_set_child(GTK_FRAME(frame), status_);
  const std::string line = ToUtf8(texts::kCompleted);
  ReserveHeight(status_, line + "\n" + line, kStatusHeight);

  fileDetails_ = NewDetails(0);
  overallDetails_ = NewDetails(1);
  GtkWidget* const details = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, units.Across(kMargin));
  gtk_box_append(GTK_BOX(details), fileDetails_);
  gtk_box_append(GTK_BOX(details), overallDetails_);
  for (GtkWidget* const each : {fileBar_, overallBar_, frame, details}) {
    gtk_box_append(GTK_BOX(box), each);
  }
  ReserveHeight(fileDetails_, line, 0);
  return box;
}

GtkWidget* Window::NewButton(Control control) {
  GtkWidget* const button = gtk_button_new();
  GtkWidget* const caption = NewLabel("");
  gtk_label_set_ellipsize(GTK_LABEL(caption), PANGO_ELLIPSIZE_END);  // only in a narrow window
  gtk_button_set_child(GTK_BUTTON(button), caption);
  gtk_widget_set_vexpand(button, TRUE);
  buttons_[dialog::IndexOf(control)] = button;
  g_signal_connect(button, "clicked", G_CALLBACK(OnClicked), &presses_[dialog::IndexOf(control)]);
  return button;
}

GtkWidget* Window::ButtonOf(Control control) const { return buttons_[dialog::IndexOf(control)]; }

// Alt and the key that the terminal dialog has. The captions have no letters to underline, so a
// tooltip tells. The hidden button has a key, too: nothing else could cancel a run. F6 goes to the
// pane and back.
void Window::AddKeys() {
  AddShortcut(window_, GDK_KEY_F6, GdkModifierType(0), OnPaneKey, this);
  for (std::size_t i = 0; i < kButtons.size(); ++i) {
    const auto key = static_cast<unsigned char>(kButtons[i].key);
    AddShortcut(window_, key, GDK_ALT_MASK, OnKey, &presses_[i]);
    if (buttons_[i] == nullptr) continue;
    const std::string keyName = std::string("Alt+") + UpperCase(kButtons[i].key);
    gtk_widget_set_tooltip_text(buttons_[i], keyName.c_str());
    gtk_accessible_update_property(GTK_ACCESSIBLE(buttons_[i]),
                                   GTK_ACCESSIBLE_PROPERTY_KEY_SHORTCUTS, keyName.c_str(), -1);
  }
}

gboolean Window::OnPaneKey(GtkWidget*, GVariant*, void* data) {
  const Window& window = *static_cast<const Window*>(data);
  GtkWidget* const focus = gtk_root_get_focus(GTK_ROOT(window.window_));
  const bool isInPane = focus != nullptr && gtk_widget_is_ancestor(focus, window.pane_) == TRUE;
  gtk_widget_child_focus(isInPane ? window.content_ : window.pane_, GTK_DIR_TAB_FORWARD);
  return TRUE;
}

void Window::OnClicked(GtkButton*, void* data) {
  const Press& press = *static_cast<const Press*>(data);
  press.events->pressed(press.control);
}

gboolean Window::OnKey(GtkWidget*, GVariant*, void* data) {
  OnClicked(nullptr, data);
  return TRUE;
}

gboolean Window::OnCloseRequest(GtkWindow*, void* data) {
  static_cast<const Events*>(data)->close();
  return TRUE;
}

void Window::Show(const DialogModel& model) {
  ShowText(status_, StatusText(model.status));
  ShowBar(fileBar_, model.fileBar);
  ShowBar(overallBar_, model.overallBar);
  for (std::size_t i = 0; i < buttons_.size(); ++i) {
    if (buttons_[i] != nullptr) ShowButton(buttons_[i], model.buttons[i]);
  }
  KeepFocus();
}

void Window::ShowDetails(const std::string& file, const std::string& overall) {
  ShowText(fileDetails_, file);
  ShowText(overallDetails_, overall);
}

void Window::ShowPage(const std::string& address) { LoadPage(pane_, address); }

// The first button that can have it, as when the dialog opens, if the one that had the focus was
// disabled: without a focus no key would reach a screen reader.
void Window::KeepFocus() {
  GtkWidget* const focus = gtk_root_get_focus(GTK_ROOT(window_));
  if (focus != nullptr && gtk_widget_is_sensitive(focus) == TRUE) return;
  gtk_widget_child_focus(content_, GTK_DIR_TAB_FORWARD);
}

}  // namespace velmora::platform::desktop
