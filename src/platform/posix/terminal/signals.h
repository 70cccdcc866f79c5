// The signals that reach the dialog. Those that it serves arrive through a pipe, on the dialog's
// thread. Those that kill the process restore the terminal first. A signal that was ignored before
// stays ignored (nohup, a shell's background jobs). For one dialog in a process.
//
// Watching never ends: no signal may break the chain of processes between the end of the dialog and
// the start of the successor, which starts with the signal actions from before.
#pragma once

#include <optional>

namespace velmora::platform::terminal {

// False if no pipe can be made.
[[nodiscard]] bool WatchSignals();

// Readable while a signal is pending.
[[nodiscard]] int SignalDescriptor();
// SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGCONT or SIGWINCH; empty if none is pending.
[[nodiscard]] std::optional<int> NextSignal();

// Stops the process as an unwatched SIGTSTP would. Returns when the process is continued.
void StopProcess();

}  // namespace velmora::platform::terminal
