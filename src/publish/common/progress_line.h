// A line on the error stream that shows the progress of a long task.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/clock.h"

namespace velmora::publish {

// Written by the working threads, read by the line.
struct Progress {
  // Starts a phase of the work, for which figures and time begin anew. To be called by one thread,
  // while no other counts. `name` is a literal, of at most nine characters if there are figures.
  void Begin(const char* name, std::uint64_t allFiles, std::uint64_t allBytes);

  std::atomic<const char*> phase = "";
  std::atomic<std::uint32_t> start = platform::TickCount();  // of the phase
  std::atomic<std::uint64_t> files = 0;
  std::atomic<std::uint64_t> filesTotal = 0;
  std::atomic<std::uint64_t> bytes = 0;
  std::atomic<std::uint64_t> bytesTotal = 0;
  std::atomic<std::uint64_t> findings = 0;
};

// "1.5 MB" and the like, by powers of 1,000.
[[nodiscard]] std::string ByteText(double bytes);

// Phase, bar, files, findings if there are any, bytes, and after a moment rate and time left, by
// `seconds` of the phase; at most 79 characters, all ASCII. Of a phase without figures, only its
// name.
[[nodiscard]] std::string ProgressText(const Progress& progress, double seconds);

// Returns to the beginning of the terminal's line and erases it (ECMA-48, EL).
inline constexpr char kEraseLine[] = "\r\x1B[K";

// Draws the line ten times a second as long as the object lives, and erases it at the end. Does
// nothing unless `shown`. `progress` must outlive it, and nothing else may write to the terminal.
class ProgressLine {
 public:
  ProgressLine(const Progress& progress, bool shown);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

 private:
  struct Drawing;
  std::unique_ptr<Drawing> drawing_;
};

}  // namespace velmora::publish
