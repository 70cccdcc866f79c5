// Files that take their places together: all of them, or none.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace velmora::publish {

// A file of this number in the replacement's folder, and where it belongs below the output.
struct Placement {
  std::size_t number;
  std::filesystem::path place;
};

// What a process that ended on the way left behind, and what became of it.
enum class Leftover {
  kNone,
  kFinished,  // all files have taken their places
  kUndone,    // none has: what was there before is there again
};

// Works in `folder`, where the files wait, and on `output`; both on one file system. A journal in
// `folder` says at each moment what is still to be done, so that a kill or a power cut at any step
// leaves what Recover can finish or undo. One object at a time for a folder, of all processes.
class Replacement {
 public:
  Replacement(std::filesystem::path folder, std::filesystem::path output);

  // What Run moves away to make room: files where folders are needed, and all that is in folders
  // where files are needed, below the output.
  [[nodiscard]] std::vector<std::filesystem::path> FilesInTheWay(
      const std::vector<Placement>& placements) const;

  // Moves each file to its place in one step, replacing an earlier one, in the given order, and the
  // last one when the disk has all others. What is in the way is moved to `folder`. Tries first
  // whether the folders can be written. On failure moves all files back and throws PublishError.
  // Returns when a power cut would change nothing any more.
  void Run(const std::vector<Placement>& placements) const;

  // Finishes what is left of an earlier Run; where that fails, undoes it. Throws PublishError if
  // neither works, and can be called again when the cause is removed.
  [[nodiscard]] Leftover Recover() const;

  // Whether there is something to recover.
  [[nodiscard]] bool IsPending() const;

  // Whether a file of this name in the folder is one of a Replacement.
  [[nodiscard]] static bool Owns(const std::string& name);

 private:
  struct Entry;
  enum class Places { kAll, kRemaining };

  [[nodiscard]] std::filesystem::path NewAt(const Entry& entry) const;
  [[nodiscard]] std::filesystem::path OldAt(const Entry& entry) const;
  [[nodiscard]] std::filesystem::path ObstacleTo(const std::filesystem::path& place,
                                                 std::filesystem::path& clear) const;
  [[nodiscard]] std::vector<Entry> Prepare(const std::vector<Placement>& placements) const;
  [[nodiscard]] Entry Prepare(const Placement& placement) const;
  void TryFolder(const std::filesystem::path& target) const;
  void WriteJournal(const std::vector<Entry>& entries) const;
  [[nodiscard]] std::vector<Entry> ReadJournal() const;
  void Place(const std::vector<Entry>& entries, Places places) const;
  void PlaceOne(const Entry& entry, Places places) const;
  void Undo(const std::vector<Entry>& entries) const;
  void UndoOne(const Entry& entry) const;
  void TakeBack(const std::vector<Entry>& entries, const std::string& failure) const;
  void Flush() const;

  std::filesystem::path folder_;
  std::filesystem::path output_;
  std::filesystem::path journal_;  // all files are on their way to their places
  std::filesystem::path undoing_;  // the journal's name when they are on their way back
};

}  // namespace velmora::publish
