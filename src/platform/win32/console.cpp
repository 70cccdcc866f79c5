#include "platform/console.h"

// windows.h comes first: the other header needs it.
// clang-format off
#include <windows.h>
#include <shellapi.h>
// clang-format on

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>

#include "platform/win32/utf16.h"

#ifndef ENABLE_VIRTUAL_TERMINAL_PROCESSING
#define ENABLE_VIRTUAL_TERMINAL_PROCESSING 4
#endif

namespace velmora::platform {

namespace {

std::atomic<void (*)()> stopFunction = nullptr;
std::atomic<bool> isStopAsked = false;

// Called by the system on a thread of its own.
BOOL WINAPI OnControlEvent(DWORD event) {
  const bool isSecond = isStopAsked.exchange(true);
  stopFunction.load()();
  if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) return isSecond ? FALSE : TRUE;
  // The process ends when this returns, or when the system loses patience.
  Sleep(INFINITE);
  return TRUE;
}

// --- Text for a console. Its code page may lack what is printed, and belongs to whoever uses it
// afterwards. So a stream to the console leads into a pipe, and from there a thread passes its text
// on as UTF-16.

class ConsoleText {
 public:
  // Takes the place of the streams that lead to the console. Their text is there when the process
  // ends.
  void Begin();
  [[nodiscard]] bool HasErrorStream() const { return hasErrorStream_; }
  // Whether sequences of ECMA-48 are understood, as they are since Windows 10.
  [[nodiscard]] bool UnderstandsSequences();

 private:
  [[nodiscard]] bool Take(std::FILE* stream, int end);
  void Pass() const;
  void Print(std::string_view text) const;
  static void End();

  HANDLE console_ = INVALID_HANDLE_VALUE;
  DWORD modeBefore_ = 0;
  bool hasErrorStream_ = false;
  int readEnd_ = -1;
  std::thread thread_;
};

ConsoleText consoleText;

bool IsConsole(HANDLE stream) {
  DWORD mode = 0;
  return GetConsoleMode(stream, &mode) != FALSE;
}

HANDLE HandleOf(std::FILE* stream) {
  return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
}

void ConsoleText::Begin() {
  if (!IsConsole(HandleOf(stdout)) && !IsConsole(HandleOf(stderr))) return;
  console_ = CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE,
                         FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  std::array<int, 2> ends{};
  constexpr unsigned kSize = 65536;
  if (!GetConsoleMode(console_, &modeBefore_) ||
      _pipe(ends.data(), kSize, _O_BINARY | _O_NOINHERIT) != 0) {
    return;
  }
  readEnd_ = ends[0];
  const bool hasOutput = Take(stdout, ends[1]);
  hasErrorStream_ = Take(stderr, ends[1]);
  _close(ends[1]);
  if (!hasOutput && !hasErrorStream_) return;
  thread_ = std::thread([this] { Pass(); });
  std::atexit(End);
}

bool ConsoleText::Take(std::FILE* stream, int end) {
  return IsConsole(HandleOf(stream)) && _dup2(end, _fileno(stream)) == 0;
}

// The number of bytes at the end of the text that are the beginning of a character.
std::size_t IncompleteBytes(std::string_view text) {
  constexpr std::size_t kLongest = 4;
  for (std::size_t count = 1; count < kLongest && count <= text.size(); ++count) {
    const auto byte = static_cast<unsigned char>(text[text.size() - count]);
    if (byte < 0x80) return 0;
    if (byte >= 0xC0) {
      const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
      return length > count ? count : 0;
    }
  }
  return 0;
}

void ConsoleText::Pass() const {
  std::array<char, 4096> buffer{};
  std::size_t kept = 0;
  int count = 0;
  while ((count = _read(readEnd_, buffer.data() + kept,
                        static_cast<unsigned>(buffer.size() - kept))) > 0) {
    const std::string_view text(buffer.data(), kept + static_cast<std::size_t>(count));
    kept = IncompleteBytes(text);
    Print(text.substr(0, text.size() - kept));
    std::memmove(buffer.data(), text.data() + text.size() - kept, kept);
  }
  Print({buffer.data(), kept});
}

void ConsoleText::Print(std::string_view text) const {
  const std::wstring wide = ToUtf16(text, CP_UTF8);
  DWORD count = 0;
  WriteConsoleW(console_, wide.data(), static_cast<DWORD>(wide.size()), &count, nullptr);
}

bool ConsoleText::UnderstandsSequences() {
  return SetConsoleMode(console_, modeBefore_ | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
}

// The thread has read everything when no stream leads into the pipe any more.
void ConsoleText::End() {
  for (std::FILE* const stream : {stdout, stderr}) {
    std::fflush(stream);
    _close(_fileno(stream));
  }
  consoleText.thread_.join();
  SetConsoleMode(consoleText.console_, consoleText.modeBefore_);
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
  consoleText.Begin();
}

void CallWhenAskedToStop(void (*stop)()) {
  stopFunction = stop;
  SetConsoleCtrlHandler(OnControlEvent, TRUE);
}

bool IsErrorStreamATerminal() {
  return consoleText.HasErrorStream() && consoleText.UnderstandsSequences();
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
