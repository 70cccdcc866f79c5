// The process itself, its hidden window, and other programs. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace velmora::platform {

// The hidden window is the process's message queue: whoever waits in PumpUntilQuit goes on when the
// window has been destroyed.
//
// False if no window can be had at all.
[[nodiscard]] bool RegisterHiddenWindow();
void CreateHiddenWindow();
// Asks the window to close, which destroys it.
void CloseHiddenWindow();
// Tells the window that it is destroyed; the quit message is then in the queue.
void DestroyHiddenWindow();
void PumpUntilQuit();

// A message box outside the dialog, owned by the hidden window. Blocks until the player has
// answered.
void ShowStartBox(const std::string& text, const std::string& caption, std::uint32_t type);

// Paths are bytes, and the system's own names may be more than bytes can say: on Windows a name may
// have characters outside the code page of the player's system. A directory then comes in its short
// form, and never as bytes that name another one; where it has no such form, there is no path.

// Full path of the running program file; empty if it can't be told.
[[nodiscard]] std::string ModulePath();

// The working directory, without a separator at its end unless it is a root; empty if it can't be
// told, or needs more than `bufferSize` bytes with its terminator.
[[nodiscard]] std::string WorkingDirectory(std::size_t bufferSize);

// `path` in its short form; unchanged if it has none, or one that needs more than `bufferSize`
// bytes.
[[nodiscard]] std::string ShortPath(const std::string& path, std::size_t bufferSize);

// The folder of the operating system; empty where there is none of that kind.
[[nodiscard]] std::string SystemFolder(std::size_t bufferSize);

// The single-instance lock: one per user, shared by all processes of the user, gone with its holder
// however that ends.
struct NamedMutex {
  std::uintptr_t handle = 0;    // 0: it can't be had at all
  bool alreadyExisted = false;  // another process holds it
};
[[nodiscard]] NamedMutex CreateNamedMutex(const char* name);
void ReleaseNamedMutex(const NamedMutex& mutex);

// Hands the player over to another start of the program: the file is looked for in the working
// directory, and gets `parameters` as its command line. Where a terminal serves as the dialog, the
// successor takes it over when this process ends, by EndProcess. Nobody learns of a failure.
void StartSuccessor(const std::string& file, const std::string& directory,
                    const std::string& parameters);

// Starts another program and doesn't wait for it: `file` without a directory, looked for in
// `directory`, the working directory and the system's search path; run in `directory`, or in the
// working directory if there is none. Returns the reason if it can't be started; empty if it was,
// and always where the system itself tells the player, as Windows' shell does.
[[nodiscard]] std::string LaunchProgram(const std::string& file,
                                        const std::optional<std::string>& directory,
                                        const std::string& parameters);

// Ends the process at once, with whatever threads it has; no destructor runs.
[[noreturn]] void EndProcess(int exitCode);

}  // namespace velmora::platform
