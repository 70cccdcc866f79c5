// Where the files of a publication wait until all of them are complete.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <vector>

#include "platform/file_lock.h"
#include "publish/build/replacement.h"

namespace velmora::publish {

// A folder within `output`, which is created if it is missing, for files that aren't published yet.
// The destructor removes it, and with it an `output` that is still empty. It is locked: a second
// Staging for the same output, in any process, is refused. What a killed process has left in it is
// finished or undone first. Throws PublishError.
class Staging {
 public:
  static constexpr char kFolder[] = ".publishing";

  explicit Staging(const std::filesystem::path& output);
  ~Staging();
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  // What a killed process had left, and what became of it.
  [[nodiscard]] Leftover leftover() const { return leftover_; }

  // Where the file with this number is written.
  [[nodiscard]] std::filesystem::path At(std::size_t number) const;

  // Moves the files to their places below the output, as Replacement::Run does.
  void Publish(const std::vector<Placement>& placements) const;

 private:
  void RemoveContents() const;

  std::filesystem::path folder_;
  Replacement replacement_;
  bool isOutputNew_;
  std::unique_ptr<platform::FileLock> lock_;
  Leftover leftover_ = Leftover::kNone;
};

// Whether files of a build are on their way to their places in `output`, or a killed build has left
// them so.
[[nodiscard]] bool HasUnfinishedReplacement(const std::filesystem::path& output);

// Finishes or undoes what a killed build has left in `output`, if anything. Throws PublishError.
Leftover RecoverPublication(const std::filesystem::path& output);

}  // namespace velmora::publish
