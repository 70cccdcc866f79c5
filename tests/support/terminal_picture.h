// What a player sees on a terminal. libvterm interprets the bytes that a program writes, and
// decides how wide each character is.
#pragma once

#include <vterm.h>

#include <string>
#include <string_view>

namespace velmora::test {

class TerminalPicture {
 public:
  explicit TerminalPicture(std::size_t columns = 80, std::size_t rows = 24)
      : terminal_(vterm_new(static_cast<int>(rows), static_cast<int>(columns))),
        screen_(vterm_obtain_screen(terminal_)) {
    callbacks_.settermprop = [](VTermProp property, VTermValue* value, void* picture) {
      if (property == VTERM_PROP_CURSORVISIBLE) Of(picture).isCursorShown_ = value->boolean != 0;
      return 1;
    };
    callbacks_.sb_pushline = [](int, const VTermScreenCell*, void* picture) {
      return ++Of(picture).scrolled_;
    };
    vterm_set_utf8(terminal_, 1);
    vterm_screen_set_callbacks(screen_, &callbacks_, this);
    vterm_screen_reset(screen_, 1);
  }
  ~TerminalPicture() { vterm_free(terminal_); }
  TerminalPicture(const TerminalPicture&) = delete;
  TerminalPicture& operator=(const TerminalPicture&) = delete;

  void Feed(std::string_view bytes) { vterm_input_write(terminal_, bytes.data(), bytes.size()); }

  // The rows down to the cursor's, and on to the last one that shows text, each with a line feed.
  [[nodiscard]] std::string text() const {
    int height = 0;
    int width = 0;
    vterm_get_size(terminal_, &height, &width);
    std::string text;
    std::size_t end = 0;
    for (int row = 0; row < height; ++row) {
      std::string line(std::size_t{4} * VTERM_MAX_CHARS_PER_CELL * width, '\0');
      line.resize(
          vterm_screen_get_text(screen_, line.data(), line.size(), {row, row + 1, 0, width}));
      text += line + "\n";
      if (row <= cursor().row || !line.empty()) end = text.size();
    }
    return text.substr(0, end);
  }
  [[nodiscard]] VTermPos cursor() const {
    VTermPos position = {};
    vterm_state_get_cursorpos(vterm_obtain_state(terminal_), &position);
    return position;
  }
  [[nodiscard]] bool isCursorShown() const { return isCursorShown_; }
  // How many rows have scrolled off the top.
  [[nodiscard]] int scrolled() const { return scrolled_; }

 private:
  static TerminalPicture& Of(void* picture) { return *static_cast<TerminalPicture*>(picture); }

  VTerm* terminal_;
  VTermScreen* screen_;
  VTermScreenCallbacks callbacks_ = {};
  bool isCursorShown_ = true;
  int scrolled_ = 0;
};

}  // namespace velmora::test
