// A file that the tool writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace velmora::publish {

// Throws PublishError: `path` can't be written, and why.
[[noreturn]] void FailToWrite(const std::filesystem::path& path, const std::string& reason);
[[noreturn]] void FailToWrite(const std::filesystem::path& path, const std::error_code& error);

// A file being written at `path`, or nowhere if that is empty: its bytes are only counted. One that
// was there is removed first: written over, it would change under its other names. The destructor
// removes the file unless Commit was called. Throws PublishError if writing fails.
class NewFile {
 public:
  explicit NewFile(std::filesystem::path path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void Write(const void* bytes, std::size_t count);
  [[nodiscard]] std::uint64_t size() const { return size_; }
  void Commit();

 private:
  std::filesystem::path path_;
  std::ofstream stream_;
  std::uint64_t size_ = 0;
  bool committed_ = false;
};

}  // namespace velmora::publish
