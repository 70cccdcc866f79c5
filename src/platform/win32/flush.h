// What flushing a file and flushing a directory have in common.
#pragma once

#include <windows.h>

namespace velmora::platform {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Stores the code for LastSystemError. Returns false.
bool Fail(DWORD code);

// Makes the file's contents survive a power failure. Fails if the system can't.
[[nodiscard]] bool FlushHandle(HANDLE file);

}  // namespace velmora::platform
