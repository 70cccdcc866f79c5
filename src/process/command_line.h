// The command line: options of one letter behind a slash, wherever the slash stands, in either
// case, with a value that runs to the next blank. Plain 8-bit text, no quoting of any kind. Nothing
// in it is an error. Main thread, at start-up.
//
//   /B url     download server: host and path of the URL
//   /C         clean-up run: delete the temporary copy and end
//   /D name    name of the reference list
//   /H url     information page
//   /I id      id that the game client gets
//   /L value   no effect
//   /P path    settings file
//   /R         restart run: delete the temporary copy, hand on only what follows
//
// A value holds at most 259 bytes. A longer one is refused: the option has no effect, and the log
// says so.
#pragma once

#include <cstddef>
#include <string>

namespace velmora {

inline constexpr std::size_t kMaxOptionValue = 259;
inline constexpr char kTemporaryCopy[] = "_VelmoraUpdate.exe";

// The text that is handed on to the next process: the command line, or what follows its last /R.
extern std::string ArgumentTail;

// Takes the settings path from the last /P.
void ScanSettingsPath(const std::string& commandLine);

enum class ScanResult { kContinue, kEndProcess };

// Applies all other options in their order and sets ArgumentTail. kEndProcess after a /C.
[[nodiscard]] ScanResult ScanOptions(const std::string& commandLine);

// The options of `line` that stand whole within its first `limit` bytes, so that they read as they
// do in the whole line.
[[nodiscard]] std::string WholeOptions(const std::string& line, std::size_t limit);

// Deletes the temporary copy, if there is one, and returns when it is gone: it can't be deleted as
// long as it runs, so this is how a process waits for it to end.
void DeleteTemporaryCopy();

}  // namespace velmora
