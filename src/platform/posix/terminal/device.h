// The terminal itself: its size, its modes, and how they are restored however the process ends. A
// signal may end it at any moment, so the modes from before are kept in global variables.
#pragma once

#include "platform/posix/terminal/render.h"

namespace velmora::platform::terminal {

// Whether standard output is a terminal that a block can be redrawn on.
[[nodiscard]] bool IsScreen();
// Whether standard input is a terminal, so that it delivers keys.
[[nodiscard]] bool IsKeyboard();

// A descriptor of the screen that never blocks a write, so that a stopped terminal can't stop the
// dialog. Standard output if the screen can't be opened again.
[[nodiscard]] int OpenScreen();
// 80 by 24 if the terminal doesn't know its size.
[[nodiscard]] ScreenSize CurrentScreenSize();

// From now on keys arrive one by one and without an echo. `RestoreTerminal` undoes this. May be
// called again.
void TakeKeyboard();
// From now on `RestoreTerminal` also moves below the block and shows the cursor.
void TakeScreen();
// To be called when the cursor is below the block and shown again.
void ReleaseScreen();

// Safe to call in a signal handler. Does nothing if nothing was taken.
void RestoreTerminal();

}  // namespace velmora::platform::terminal
