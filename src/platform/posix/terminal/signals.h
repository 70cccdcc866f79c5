// The signals that reach the dialog. Those that it serves come out of a pipe, on the dialog's
// thread; those that kill the process restore the terminal first. A signal that the process ignored
// before stays ignored (nohup, a shell's background jobs). One dialog in a process uses this.
//
// The watch never ends: between the end of the dialog and the start of the successor, which has its
// signals as they were before, none may cut the chain of processes.
#pragma once

#include <optional>

namespace velmora::platform::terminal {

// False if there is no pipe to be had.
[[nodiscard]] bool WatchSignals();

// Readable when a signal waits.
[[nodiscard]] int SignalDescriptor();
// SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGCONT or SIGWINCH; empty if none has come.
[[nodiscard]] std::optional<int> NextSignal();

// Stops the process as SIGTSTP does where nobody watches it; returns when it goes on.
void StopProcess();

}  // namespace velmora::platform::terminal
