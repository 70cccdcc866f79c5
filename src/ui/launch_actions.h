// The programs that the dialog's buttons start. Nobody waits for them, and a launch that fails
// leaves no trace but the log's lines. Dialog thread.
#pragma once

namespace velmora {

// Starts the game client and asks the dialog to close. Always true.
bool StartGame();

// Starts the game's option tool. Always true.
bool ExecOption();

// Opens the Screenshot folder. Always true.
bool ExecScreenshot();

// Starts the DirectX diagnostics tool. False if the system has none.
bool ExecDxDiag();

// Whether the Screenshot folder and the diagnostics tool are there.
[[nodiscard]] bool HasScreenshots();
[[nodiscard]] bool HasDxDiag();

}  // namespace velmora
