// One process at a time: a lock that ends with its holder, however that ends.
#pragma once

#include <filesystem>
#include <memory>

namespace velmora::platform {

class FileLock {
 public:
  enum class Outcome {
    kHeld,
    kTaken,   // by another lock, of this process or of another one
    kFailed,  // the file can't be created: the folder is missing, protected, or full
  };

  // Tries to hold the lock that the file `path` stands for, without waiting. The file is created,
  // and removed with the lock; its content has no meaning. A file that a killed process has left
  // there holds nobody up.
  explicit FileLock(const std::filesystem::path& path);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  [[nodiscard]] Outcome outcome() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace velmora::platform
