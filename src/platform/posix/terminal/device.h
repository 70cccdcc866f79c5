// The terminal itself: its modes, its size, and getting its modes back on every way out. What is
// kept for that is the process's own, as a signal may end the process at any moment.
#pragma once

#include "platform/posix/terminal/render.h"

namespace velmora::platform::terminal {

// Gives each of the three standard descriptors that is closed to the null device. Otherwise the
// next file that is opened would be taken for the input or the output.
void FillStandardDescriptors();

// Whether standard output is a terminal that a block can be redrawn on.
[[nodiscard]] bool IsScreen();
// Whether standard input is a terminal, which gives keys.
[[nodiscard]] bool IsKeyboard();

// A descriptor for the screen whose writes never block, so that a terminal that has stopped can't
// stop the dialog; standard output if there is none to be had.
[[nodiscard]] int OpenScreen();
// 80 by 24 where the terminal doesn't know.
[[nodiscard]] ScreenSize CurrentScreenSize();

// Keys arrive one by one and unseen from here on; what held before comes back with
// `RestoreTerminal`. May be repeated.
void TakeKeyboard();
// From here on `RestoreTerminal` shows the cursor, too.
void TakeScreen();
// The block has been left, the cursor is seen.
void LeaveScreen();

// Safe in a signal handler. Does nothing if nothing was taken.
void RestoreTerminal();

}  // namespace velmora::platform::terminal
