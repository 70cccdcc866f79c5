#include "platform/console.h"

// windows.h comes first: the other header needs it.
// clang-format off
#include <windows.h>
#include <shellapi.h>
// clang-format on

#include <fcntl.h>
#include <io.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/win32/utf16.h"

#ifndef ENABLE_VIRTUAL_TERMINAL_PROCESSING
#define ENABLE_VIRTUAL_TERMINAL_PROCESSING 4
#endif

namespace velmora::platform {

namespace {

std::atomic<void (*)()> stopFunction = nullptr;
std::atomic<bool> isStopAsked = false;
UINT codePageBefore = 0;

HANDLE ErrorStream() { return GetStdHandle(STD_ERROR_HANDLE); }

// Called by the system on a thread of its own.
BOOL WINAPI OnControlEvent(DWORD event) {
  const bool isSecond = isStopAsked.exchange(true);
  stopFunction.load()();
  if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) return isSecond ? FALSE : TRUE;
  // The process ends when this returns, or when the system loses patience.
  Sleep(INFINITE);
  return TRUE;
}

void RestoreConsole() {
  if (codePageBefore != 0) SetConsoleOutputCP(codePageBefore);
}

}  // namespace

std::vector<std::string> CommandLineArguments(int, char**) {
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; words != nullptr && i < count; ++i) {
    arguments.push_back(FromUtf16(words[i], CP_UTF8));
  }
  LocalFree(words);
  return arguments;
}

void PrepareStandardStreams() {
  for (std::FILE* const stream : {stdout, stderr}) _setmode(_fileno(stream), _O_BINARY);
  if (GetConsoleOutputCP() == 0) return;  // there is no console
  codePageBefore = GetConsoleOutputCP();
  SetConsoleOutputCP(CP_UTF8);
  std::atexit(RestoreConsole);
}

void CallWhenAskedToStop(void (*stop)()) {
  stopFunction = stop;
  SetConsoleCtrlHandler(OnControlEvent, TRUE);
}

// Consoles before Windows 10 don't understand the sequences.
bool IsErrorStreamATerminal() {
  DWORD mode = 0;
  return GetConsoleMode(ErrorStream(), &mode) != FALSE &&
         SetConsoleMode(ErrorStream(), mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
}

OutputEnd EndOutput() {
  const bool hadFailed = std::ferror(stdout) != 0;
  errno = 0;
  SetLastError(ERROR_SUCCESS);
  const bool isWritten = std::fflush(stdout) == 0;
  // A pipe without a reader is an invalid argument to the C library.
  const DWORD reason = GetLastError();
  const bool isReaderGone = reason == ERROR_NO_DATA || reason == ERROR_BROKEN_PIPE;
  return {isWritten && !hadFailed, isReaderGone, errno == 0 ? "" : std::strerror(errno)};
}

}  // namespace velmora::platform
