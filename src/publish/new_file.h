// A file that appears under its name only when it is complete.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>

namespace velmora::publish {

// Written under a temporary name beside `target`, whose folders are made; Publish gives it its name
// and replaces what had that name in one step. Without Publish nothing of it stays. Throws
// PublishError when the disk doesn't take it.
class NewFile {
 public:
  explicit NewFile(std::filesystem::path target);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void Write(const void* bytes, std::size_t count);
  [[nodiscard]] std::uint64_t size() const { return size_; }
  void Publish();

 private:
  std::filesystem::path target_;
  std::filesystem::path temporary_;
  std::ofstream stream_;
  std::uint64_t size_ = 0;
};

}  // namespace velmora::publish
