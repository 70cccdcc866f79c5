// The dialog's window: its widgets, in the proportions of the dialog template, and what they show.
// For the dialog's thread only.
#pragma once

#include <gtk/gtk.h>

#include <array>
#include <functional>
#include <string>

#include "platform/posix/dialog/figures.h"
#include "platform/posix/dialog/model.h"

namespace velmora::platform::desktop {

class Window {
 public:
  struct Events {
    std::function<void(Control)> pressed;  // a button, by mouse or key; it may be disabled
    std::function<void()> close;           // the player wants the window closed
  };

  explicit Window(Events events);
  ~Window();
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  [[nodiscard]] GtkWindow* handle() const { return GTK_WINDOW(window_); }
  void Present();

  void Show(const dialog::DialogModel& model);
  // The line of figures: nothing but while a run is updating.
  void ShowDetails(const std::string& file, const std::string& overall);
  // To be called once, when the window is on the screen.
  void ShowPage(const std::string& address);

 private:
  void Build();
  [[nodiscard]] GtkWidget* NewButton(Control control);
  [[nodiscard]] GtkWidget* ButtonOf(Control control) const;
  [[nodiscard]] GtkWidget* NewProgress();
  [[nodiscard]] GtkWidget* NewControls();
  void AddKeys();
  void KeepFocus();

  // What a button or its key presses.
  struct Press {
    const Events* events = nullptr;
    Control control{};
  };
  static void OnClicked(GtkButton* button, void* press);
  static gboolean OnPaneKey(GtkWidget* window, GVariant* arguments, void* self);
  static gboolean OnKey(GtkWidget* window, GVariant* arguments, void* press);
  static gboolean OnCloseRequest(GtkWindow* window, void* events);

  const Events events_;
  std::array<Press, dialog::kButtons.size()> presses_;
  GtkWidget* window_ = nullptr;
  GtkWidget* content_ = nullptr;
  GtkWidget* pane_ = nullptr;
  GtkWidget* fileBar_ = nullptr;
  GtkWidget* overallBar_ = nullptr;
  GtkWidget* status_ = nullptr;
  GtkWidget* fileDetails_ = nullptr;
  GtkWidget* overallDetails_ = nullptr;
  std::array<GtkWidget*, dialog::kButtons.size()> buttons_{};  // none for the hidden Update button
};

}  // namespace velmora::platform::desktop
