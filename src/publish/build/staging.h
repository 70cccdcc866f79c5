// How a publication appears: every file of it is complete before the first one takes its place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>

namespace velmora::publish {

// A file being written at `path`. It goes again unless Keep was called. Throws PublishError when
// the disk doesn't take it.
class NewFile {
 public:
  explicit NewFile(std::filesystem::path path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void Write(const void* bytes, std::size_t count);
  [[nodiscard]] std::uint64_t size() const { return size_; }
  void Keep();

 private:
  std::filesystem::path path_;
  std::ofstream stream_;
  std::uint64_t size_ = 0;
  bool kept_ = false;
};

// A folder within `output` (which is made if it is missing) for what isn't published yet, with all
// it holds as long-lived as this object. One at a time for an output: a second one is refused,
// since the two would mix. Throws PublishError.
class Staging {
 public:
  static constexpr char kFolder[] = ".publishing";

  explicit Staging(const std::filesystem::path& output);
  ~Staging();
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  // Where the file of this number is written.
  [[nodiscard]] std::filesystem::path At(std::size_t number) const;

  // Makes the folders of `target` and sees that nothing stands there but a file: what Publish
  // needs.
  void MakeRoom(const std::filesystem::path& target) const;
  // Returns when all that was written and published so far would outlive a power cut.
  void Sync() const;
  // The file takes its place, instead of the one that had it, in one step.
  void Publish(std::size_t number, const std::filesystem::path& target) const;

 private:
  std::filesystem::path folder_;
};

}  // namespace velmora::publish
