// What happens when the browser engine ends the process: its library aborts when it can't start its
// own processes, which depends on the system's sandbox and on much else that is none of the
// patcher's business.
#pragma once

namespace velmora::platform::desktop {

// From now on an abort starts the program again in this process, with the same arguments. There
// StartsWithoutPage returns true, and the page isn't loaded. The update that was under way starts
// again, as after a kill. To be called once, by the main thread.
void RestartOnAbort();

// Whether the engine has ended this process before. True once; programs that this one starts don't
// learn of it.
[[nodiscard]] bool StartsWithoutPage();

}  // namespace velmora::platform::desktop
