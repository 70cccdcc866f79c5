// The session log: the text file session.log in the working directory, one record a message. The
// one diagnostic record of the program; no decision depends on it and no failure of it is reported.
//
// A record is "[YYYY/MM/DD hh:mm:ss] " in local time and the message, which brings its own line
// end. The file is written in text mode (base/text_mode.h), opened and closed for each record, and
// each record reaches it in one write at its end, so that threads and processes can log at once.
#pragma once

#include <cstddef>

namespace velmora {

// The longest message. A longer one is cut between two characters and keeps its line end.
inline constexpr std::size_t kMaxLogMessage = 4073;

// Appends a record. `format` is a constant of the program. Any thread, from the first instruction
// on.
void LogMessage(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Cuts the log to length zero and logs that it begins anew.
void InitSessionLog();

}  // namespace velmora
