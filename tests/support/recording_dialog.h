// A dialog without a screen, linked instead of the real one and its browser. It records each call
// in order, and message boxes return at once.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace velmora::test {

// One line for each operation, such as "status 確認中  0 / 1 \na.dat", "range 1002 0 1",
// "step 1002 1", "position 1005 20", "move 1002 1", "stepit 1002", "enable 1000 1",
// "caption 1000 CancelUpdate", "box 40010 <caption>|<text>", "close", "end 1", "navigate <url>".
struct DialogRecord {
  std::vector<std::string> events;
  // Called after each event with its line, on the thread that caused it.
  std::function<void(const std::string&)> onEvent;

  std::uintptr_t browser = 2;  // in the pane's control
};

// Forgets everything.
void ResetDialog();

// The record; only while no run is in progress.
[[nodiscard]] DialogRecord& Dialog();

// The recorded events that begin with `start`.
[[nodiscard]] std::vector<std::string> EventsOf(const std::string& start);

}  // namespace velmora::test
