#include "settings/session_log.h"

#include <cstdarg>
#include <mutex>
#include <string>

#include "base/text.h"
#include "base/text_mode.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace velmora {
namespace {

constexpr char kLogFile[] = "session.log";

std::string WithinLimit(std::string message) {
  if (message.size() <= kMaxLogMessage) return message;
  return std::string(CutText(message, kMaxLogMessage - 1)) + "\n";
}

std::string TimeStamp() {
  const platform::LocalTime now = platform::CurrentLocalTime();
  return FormatText("[%04d/%02d/%02d %02d:%02d:%02d] ", now.year, now.month, now.day, now.hour,
                    now.minute, now.second);
}

// Not every system appends atomically, so only one thread at a time writes. Never destroyed: a
// worker may log until the process ends.
std::mutex& LogMutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}

}  // namespace

void LogMessage(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const std::string message = WithinLimit(FormatTextV(format, arguments));
  va_end(arguments);

  const std::lock_guard lock(LogMutex());
  platform::OutputFile log(kLogFile, platform::OutputFile::Mode::kAppend);
  if (!log.IsOpen()) return;
  const std::string record = EncodeTextMode(TimeStamp() + message);
  static_cast<void>(log.Write(record.data(), record.size()));
}

void InitSessionLog() {
  const bool opened = platform::OutputFile(kLogFile, platform::OutputFile::Mode::kReplace).IsOpen();
  if (opened) {
    LogMessage("==== LogFile Initialized. ====\n");
  } else {
    LogMessage("==== LogFile Initialize FAILED. ====\n");
  }
}

}  // namespace velmora
