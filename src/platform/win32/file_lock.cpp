#include "platform/file_lock.h"

#include <windows.h>

namespace velmora::platform {

struct FileLock::State {
  HANDLE file = INVALID_HANDLE_VALUE;
  Outcome outcome = Outcome::kFailed;
};

FileLock::FileLock(const std::filesystem::path& path) : state_(std::make_unique<State>()) {
  state_->file = CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, CREATE_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  if (state_->file != INVALID_HANDLE_VALUE) {
    state_->outcome = Outcome::kHeld;
  } else if (GetLastError() == ERROR_SHARING_VIOLATION) {
    state_->outcome = Outcome::kTaken;
  }
}

FileLock::~FileLock() {
  if (state_->file != INVALID_HANDLE_VALUE) CloseHandle(state_->file);
}

FileLock::Outcome FileLock::outcome() const { return state_->outcome; }

}  // namespace velmora::platform
