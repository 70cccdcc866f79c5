// New files of a publication: all of them are complete before the first one is moved to its place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>

namespace velmora::publish {

// A file being written at `path`. The destructor removes it unless Commit was called. Throws
// PublishError if writing fails.
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

// A folder within `output`, which is created if it is missing, for files that aren't published yet.
// The destructor removes it. Two at a time for one output would get mixed up, so the second one is
// refused. Throws PublishError.
class Staging {
 public:
  static constexpr char kFolder[] = ".publishing";

  explicit Staging(const std::filesystem::path& output);
  ~Staging();
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  // Where the file with this number is written.
  [[nodiscard]] std::filesystem::path At(std::size_t number) const;

  // Creates the folders of `target`, and fails if it is a directory itself. To be called before
  // Publish.
  void PrepareTarget(const std::filesystem::path& target) const;
  // Returns when everything written and published so far would survive a power cut.
  void Sync() const;
  // Moves the file to its place in one step, replacing an earlier one.
  void Publish(std::size_t number, const std::filesystem::path& target) const;

 private:
  std::filesystem::path folder_;
};

}  // namespace velmora::publish
