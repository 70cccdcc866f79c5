// The command line: options of one letter after a slash, anywhere in the text, in either case. A
// value runs to the next space. Plain 8-bit text without any quoting. Nothing in it is an error.
// Main thread, at start-up.
//
//   /B url     download server: host and path of the URL
//   /C         clean-up run: delete the temporary copy and exit
//   /D name    name of the reference list
//   /H url     information page
//   /I id      id to pass to the game client
//   /L value   no effect
//   /P path    settings file
//   /R         restart run: delete the temporary copy; only what follows is passed on
//
// A value has at most 259 bytes. An option with a longer one has no effect, and the log says so.
#pragma once

#include <cstddef>
#include <string>

namespace velmora {

inline constexpr std::size_t kMaxOptionValue = 259;
inline constexpr char kTemporaryCopy[] = "_VelmoraUpdate.exe";

// The text for the next process: the command line, or what follows its last /R.
extern std::string ArgumentTail;

// Takes the settings path from the last /P.
void ScanSettingsPath(const std::string& commandLine);

enum class ScanResult { kContinue, kEndProcess };

// Applies all other options in their order and sets ArgumentTail. kEndProcess if there is a /C.
[[nodiscard]] ScanResult ScanOptions(const std::string& commandLine);

// The longest prefix of `line` of at most `limit` bytes that ends with an option and cuts none in
// two, so that its options mean what they mean in the whole line.
[[nodiscard]] std::string WholeOptions(const std::string& line, std::size_t limit);

// Deletes the temporary copy, if there is one, and returns when it is gone. It can't be deleted
// while it runs, so this is how a process waits for it to end.
void DeleteTemporaryCopy();

}  // namespace velmora
