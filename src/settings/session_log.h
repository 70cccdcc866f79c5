// The session log: the text file session.log in the working directory, with one record for each
// message. For diagnosis only: no decision depends on it, and a failure to write it isn't reported.
//
// A record is "[YYYY/MM/DD hh:mm:ss] " in local time and the message, which includes its line end.
// The file is written in text mode (base/text_mode.h). It is opened and closed for each record, and
// a record is appended in one write, so that several threads and processes can log at once.
#pragma once

#include <cstddef>

namespace velmora {

// The longest message, in bytes. A longer one is cut between two characters and keeps its line end.
inline constexpr std::size_t kMaxLogMessage = 4073;

// Appends a record. `format` is never text from outside. Any thread, at any time.
void LogMessage(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Empties the log and logs that it was initialized.
void InitSessionLog();

}  // namespace velmora
