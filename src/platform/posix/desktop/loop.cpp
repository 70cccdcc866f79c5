#include "platform/posix/dialog/loop.h"

#include <glib-unix.h>
#include <signal.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/dialog.h"
#include "platform/posix/desktop/box.h"
#include "platform/posix/desktop/toolkit.h"
#include "platform/posix/desktop/window.h"
#include "platform/posix/dialog/details.h"
#include "platform/utf8.h"

namespace velmora::platform::desktop {
namespace {

using dialog::BoxText;
using dialog::DialogModel;
using dialog::DialogState;
using dialog::FigureKeeper;
using dialog::Figures;

constexpr guint kFigureInterval = 250;  // milliseconds
constexpr char kGap[] = "  ";
constexpr char kCancelNotice[] = "Cancelling when this file is done.";

std::string Joined(const dialog::Details& details) {
  std::string text;
  for (const std::string& detail : details) text += (text.empty() ? "" : kGap) + detail;
  return text;
}

// Serves changes, boxes and requests to close as they come, and shows the changes at most once for
// each frame of the window. The worker draws nothing.
class DialogLoop {
 public:
  DialogLoop(DialogState& state, const DialogHandlers& handlers)
      : state_(state), handlers_(handlers) {}
  ~DialogLoop();
  DialogLoop(const DialogLoop&) = delete;
  DialogLoop& operator=(const DialogLoop&) = delete;

  // Shows the window until the dialog has ended, and returns the result.
  int Run();
  void ShowBox(const BoxText& box);
  void Close();

 private:
  void Watch();
  void ServeChanges();
  void OpenNextBox();
  void AskForFrame();
  void ShowFrame();
  void ShowPage();
  void ShowFigures();
  void Press(Control control);
  [[nodiscard]] bool IsUpdating() const { return handlers_.runPhase() == RunPhase::kUpdating; }

  DialogState& state_;
  const DialogHandlers& handlers_;
  std::unique_ptr<Window> window_;
  DialogModel model_;  // as shown
  FigureKeeper figures_;
  bool isFrameAsked_ = false;
  bool isPageAsked_ = false;
  bool isBoxOpen_ = false;
  // Sources of GLib's; 0 if there is none.
  std::vector<guint> watches_;
  guint page_ = 0;   // will start the browser
  guint timer_ = 0;  // keeps the figures up to date
};

// A callback of GLib's that calls a member and goes on.
template <auto Member>
gboolean Call(void* loop) {
  (static_cast<DialogLoop*>(loop)->*Member)();
  return G_SOURCE_CONTINUE;
}

void Stop(guint& source) {
  if (source != 0) g_source_remove(std::exchange(source, 0));
}

DialogLoop::~DialogLoop() {
  for (guint& watch : watches_) Stop(watch);
  Stop(page_);
  Stop(timer_);
}

int DialogLoop::Run() {
  window_ = std::make_unique<Window>(Window::Events{
      .pressed = [this](Control control) { Press(control); }, .close = [this] { Close(); }});
  Watch();
  handlers_.opened();
  ShowFrame();
  window_->Present();
  while (state_.IsOpen()) g_main_context_iteration(nullptr, TRUE);
  const int result = state_.Close();
  // The window goes before the process does what is left to do.
  window_.reset();
  gdk_display_sync(gdk_display_get_default());
  return result;
}

void DialogLoop::Watch() {
  signal(SIGPIPE, SIG_IGN);
  const auto onWake = [](int, GIOCondition, void* loop) {
    return Call<&DialogLoop::ServeChanges>(loop);
  };
  watches_.push_back(g_unix_fd_add(state_.wakeDescriptor(), G_IO_IN, onWake, this));
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    watches_.push_back(g_unix_signal_add(number, Call<&DialogLoop::Close>, this));
  }
}

void DialogLoop::ServeChanges() {
  state_.ClearWake();
  if (const auto request = state_.TakeCloseRequest()) {
    Close();
    state_.CloseDone(*request);
  }
  OpenNextBox();
  if (state_.HasChanged()) AskForFrame();
}

void DialogLoop::OpenNextBox() {
  const auto box = state_.CurrentBox();
  if (!box || isBoxOpen_ || !state_.IsOpen()) return;
  ShowFrame();  // what led to the box
  isBoxOpen_ = true;
  OpenBox(window_->handle(), *box, [this] {
    isBoxOpen_ = false;
    state_.AnswerBox();
    ServeChanges();
  });
}

void DialogLoop::AskForFrame() {
  if (std::exchange(isFrameAsked_, true)) return;
  const auto onFrame = [](GtkWidget*, GdkFrameClock*, void* data) -> gboolean {
    auto& loop = *static_cast<DialogLoop*>(data);
    loop.isFrameAsked_ = false;
    loop.ShowFrame();
    return G_SOURCE_REMOVE;
  };
  gtk_widget_add_tick_callback(GTK_WIDGET(window_->handle()), onFrame, this, nullptr);
}

void DialogLoop::ShowFrame() {
  model_ = state_.TakeSnapshot().model;
  window_->Show(model_);
  // Later, when nothing else is to do: to start the browser's processes takes a moment.
  if (!model_.page.empty() && !std::exchange(isPageAsked_, true)) {
    page_ = g_idle_add_full(G_PRIORITY_LOW, Call<&DialogLoop::ShowPage>, this, nullptr);
  }
  if (timer_ == 0 || !IsUpdating()) ShowFigures();
}

void DialogLoop::ShowPage() {
  Stop(page_);
  window_->ShowPage(ToUtf8(model_.page));
}

void DialogLoop::ShowFigures() {
  const bool isUpdating = IsUpdating();
  const double now = static_cast<double>(g_get_monotonic_time()) / G_USEC_PER_SEC;
  const Figures figures = figures_.Update(isUpdating, ProgressOf(model_, handlers_, now));
  if (!isUpdating) {
    window_->ShowDetails("", "");
    Stop(timer_);
    return;
  }
  const bool isCancelling = CancelWaits(model_, handlers_);
  window_->ShowDetails(
      Joined(FileDetails(model_.fileBar, figures)),
      isCancelling ? kCancelNotice : Joined(OverallDetails(model_.overallBar, figures)));
  if (timer_ == 0) timer_ = g_timeout_add(kFigureInterval, Call<&DialogLoop::ShowFigures>, this);
}

void DialogLoop::Press(Control control) {
  if (state_.IsOpen() && state_.IsEnabled(control)) {
    static_cast<void>(handlers_.command(static_cast<int>(control)));
  }
}

void DialogLoop::Close() {
  if (state_.IsOpen()) handlers_.close();
}

void DialogLoop::ShowBox(const BoxText& box) {
  if (!state_.IsOpen()) return;
  const std::uint64_t number = state_.AddBox(box);
  while (!state_.IsAnswered(number) && state_.IsOpen()) g_main_context_iteration(nullptr, TRUE);
}

DialogLoop* currentLoop = nullptr;  // null outside RunLoop

}  // namespace
}  // namespace velmora::platform::desktop

namespace velmora::platform::dialog {

std::optional<int> RunLoop(DialogState& state, const DialogHandlers& handlers) {
  if (!desktop::StartToolkit() || !state.Open()) return std::nullopt;
  desktop::DialogLoop loop(state, handlers);
  desktop::currentLoop = &loop;
  const int result = loop.Run();
  desktop::currentLoop = nullptr;
  return result;
}

void ShowBoxInLoop(const BoxText& box) {
  if (desktop::currentLoop != nullptr) desktop::currentLoop->ShowBox(box);
}

void CloseInLoop() {
  if (desktop::currentLoop != nullptr) desktop::currentLoop->Close();
}

}  // namespace velmora::platform::dialog
