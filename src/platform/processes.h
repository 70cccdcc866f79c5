// The process itself, its hidden window, and other programs. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace velmora::platform {

// The hidden window is the process's message queue: PumpUntilQuit returns when the window has been
// destroyed.
//
// False if windows are unavailable.
[[nodiscard]] bool RegisterHiddenWindow();
void CreateHiddenWindow();
// Asks the window to close, which destroys it.
void CloseHiddenWindow();
// Has the window post the quit message, as it does when it is destroyed.
void DestroyHiddenWindow();
void PumpUntilQuit();

// A message box outside the dialog, owned by the hidden window. Blocks until the player has
// answered.
void ShowStartBox(const std::string& text, const std::string& caption, std::uint32_t type);

// On Windows a name may have characters outside the player's code page, which a byte string can't
// express. The functions below then return a directory's short name, or nothing if it has none, but
// never a path that names something else.

// The full path of the running program's file; empty if unknown.
[[nodiscard]] std::string ModulePath();

// The working directory, without a separator at its end unless it is a root; empty if unknown, or
// if it needs more than `bufferSize` bytes with its terminator.
[[nodiscard]] std::string WorkingDirectory(std::size_t bufferSize);

// The short form of `path`; `path` itself if it has none, or one of more than `bufferSize` bytes.
[[nodiscard]] std::string ShortPath(const std::string& path, std::size_t bufferSize);

// The folder of the operating system; empty on systems that have none.
[[nodiscard]] std::string SystemFolder(std::size_t bufferSize);

// The single-instance lock: one for each user, shared by all of the user's processes, and released
// when its holder ends in whatever way.
struct NamedMutex {
  std::uintptr_t handle = 0;    // 0: unavailable
  bool alreadyExisted = false;  // another process holds it
};
[[nodiscard]] NamedMutex CreateNamedMutex(const char* name);
void ReleaseNamedMutex(const NamedMutex& mutex);

// Starts the program again: `file`, in the working directory, with `parameters` as its command
// line. Where the dialog is a terminal, the successor takes it over when this process ends in
// EndProcess. A failure isn't reported.
void StartSuccessor(const std::string& file, const std::string& directory,
                    const std::string& parameters);

// Starts another program and doesn't wait for it. `file` has no directory; it is looked up in
// `directory`, in the working directory and on the system's search path. The program runs in
// `directory`, or in the working directory if there is none. Returns why it failed to start, empty
// if it started; always empty on Windows, whose shell tells the player by itself.
[[nodiscard]] std::string LaunchProgram(const std::string& file,
                                        const std::optional<std::string>& directory,
                                        const std::string& parameters);

// Ends the process and all its threads at once; no destructor runs.
[[noreturn]] void EndProcess(int exitCode);

}  // namespace velmora::platform
