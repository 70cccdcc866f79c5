// The programs that the dialog's buttons start. The patcher doesn't wait for them, and reports a
// launch that fails only in the log. Dialog thread.
#pragma once

namespace velmora {

// Starts the game client and asks the dialog to close. Always true.
bool StartGame();

// Starts the game's option tool. Always true.
bool ExecOption();

// Opens the Screenshot folder. Always true.
bool ExecScreenshot();

// Starts the DirectX diagnostics tool. False if the system doesn't have it.
bool ExecDxDiag();

// Whether the Screenshot folder and the DirectX diagnostics tool exist.
[[nodiscard]] bool HasScreenshots();
[[nodiscard]] bool HasDxDiag();

}  // namespace velmora
