#include "platform/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace velmora::platform {
namespace {

// The holder before may have removed the file between its opening and its locking.
bool IsFileAt(int file, const std::string& path) {
  struct stat open = {};
  struct stat named = {};
  return fstat(file, &open) == 0 && stat(path.c_str(), &named) == 0 &&
         open.st_ino == named.st_ino && open.st_dev == named.st_dev;
}

}  // namespace

struct FileLock::State {
  std::string path;
  int file = -1;
  Outcome outcome = Outcome::kFailed;
};

FileLock::FileLock(const std::filesystem::path& path)
    : state_(std::make_unique<State>(State{path.native()})) {
  constexpr int kForAll = 0666;  // a lock of another user isn't in the way
  while (true) {
    state_->file = open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, kForAll);
    if (state_->file < 0) return;
    if (flock(state_->file, LOCK_EX | LOCK_NB) != 0) {
      if (errno == EWOULDBLOCK) state_->outcome = Outcome::kTaken;
      return;
    }
    if (IsFileAt(state_->file, path)) break;
    close(state_->file);
  }
  state_->outcome = Outcome::kHeld;
}

FileLock::~FileLock() {
  if (state_->outcome == Outcome::kHeld) unlink(state_->path.c_str());
  if (state_->file >= 0) close(state_->file);
}

FileLock::Outcome FileLock::outcome() const { return state_->outcome; }

}  // namespace velmora::platform
