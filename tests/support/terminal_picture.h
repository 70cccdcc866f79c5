// A small terminal: takes the bytes that a program writes and gives what a player would see. Knows
// the few sequences that the dialog uses; any other leaves its mark on the picture, and so does
// text over text.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/posix/terminal/text.h"

namespace velmora::test {

class TerminalPicture {
 public:
  TerminalPicture(std::size_t columns, std::size_t rows) : columns_(columns), rows_(rows) {}

  void Feed(std::string_view bytes) {
    while (!bytes.empty()) bytes.remove_prefix(Take(bytes));
  }

  // What has become too wide is broken; the cursor, at the start of a line, stays with it.
  void Narrow(std::size_t columns) {
    columns_ = columns;
    const std::vector<std::string> lines = std::exchange(lines_, {});
    std::size_t cursor = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      if (i == line_) cursor = lines_.size();
      for (auto& row : platform::terminal::WrapToCells(lines[i], columns)) lines_.push_back(row);
    }
    line_ = cursor;
    for (; lines_.size() > rows_; --line_, ++scrolled_) lines_.erase(lines_.begin());
  }

  // The lines of the screen down to the cursor's and as far as there is text; a line without what
  // is behind its last character.
  [[nodiscard]] std::vector<std::string> lines() const {
    std::vector<std::string> lines = lines_;
    while (lines.size() > line_ + 1 && lines.back().empty()) lines.pop_back();
    return lines;
  }
  [[nodiscard]] std::size_t cursorLine() const { return line_; }
  [[nodiscard]] bool isCursorShown() const { return cursorShown_; }
  [[nodiscard]] int scrolled() const { return scrolled_; }

 private:
  // A line is only ever written from its beginning on: the dialog goes back to a line's start.
  std::size_t Take(std::string_view bytes) {
    if (bytes[0] == '\x1b') return TakeSequence(bytes);
    if (bytes[0] == '\r') {
      atStart_ = true;
    } else if (bytes[0] == '\n') {
      LineFeed();
    } else {
      return TakeCharacter(bytes);
    }
    return 1;
  }

  std::size_t TakeSequence(std::string_view bytes) {
    const std::size_t end = bytes.find_first_not_of("[?0123456789", 1);
    const std::string sequence(bytes.substr(1, end));
    if (sequence == "[K") {
      if (atStart_) lines_[line_].clear();
    } else if (sequence == "[?25l" || sequence == "[?25h") {
      cursorShown_ = sequence.back() == 'h';
    } else if (sequence.back() == 'A') {
      const auto up = static_cast<std::size_t>(std::stoi(sequence.substr(1)));
      line_ -= std::min(up, line_);
    } else if (sequence != "[2m" && sequence != "[0m") {
      lines_[line_] += "<unknown sequence " + sequence + ">";
    }
    return end + 1;
  }

  std::size_t TakeCharacter(std::string_view bytes) {
    std::size_t length = 1;
    while (length < bytes.size() && (bytes[length] & 0xC0) == 0x80) ++length;
    const std::string character(bytes.substr(0, length));
    using platform::terminal::CellsOf;
    if (atStart_ && !lines_[line_].empty()) lines_[line_] = "<over what stood there> ";
    atStart_ = false;
    if (CellsOf(lines_[line_]) + CellsOf(character) > columns_) LineFeed();
    lines_[line_] += character;
    return length;
  }

  void LineFeed() {
    ++line_;
    if (line_ == rows_) {
      lines_.erase(lines_.begin());
      --line_;
      ++scrolled_;
    }
    if (lines_.size() <= line_) lines_.resize(line_ + 1);
  }

  std::size_t columns_;
  std::size_t rows_;
  std::vector<std::string> lines_ = {""};
  std::size_t line_ = 0;
  bool atStart_ = true;
  bool cursorShown_ = true;
  int scrolled_ = 0;
};

}  // namespace velmora::test
