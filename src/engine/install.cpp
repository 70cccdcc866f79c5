#include "engine/install.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "base/text_mode.h"
#include "engine/verify_cache.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace velmora {
namespace {

// What this run has installed into, each with its last separator; the working directory is "".
std::set<std::string> foldersInUse;
bool everyFlushWorked = true;
bool leftUnfinishedFile = false;
int waitsInVain = 0;

InstallResult FailedAt(InstallStep step) { return {step, platform::LastSystemError()}; }

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.size() - platform::LastPathElement(path).size());
}

// A scanner holds each new file for a moment, which is no reason to give up the step. What looks
// like that may last, too: then a run doesn't wait for it again and again.
template <typename Step>
bool UntilNotHeld(const Step& step) {
  constexpr std::uint32_t kLongest = 2000;
  constexpr std::uint32_t kPause = 20;
  constexpr int kMostInVain = 5;
  const std::uint32_t begin = platform::TickCount();
  while (!step()) {
    if (!platform::IsHeldByAnother(platform::LastSystemError())) return false;
    if (waitsInVain >= kMostInVain) return false;
    if (platform::TickCount() - begin >= kLongest) {
      ++waitsInVain;
      return false;
    }
    platform::Pause(kPause);
  }
  return true;
}

bool Discard(const std::string& file) {
  return UntilNotHeld([&] { return platform::RemoveFile(file) || !platform::FileExists(file); });
}

// If the note can't be written, as on a full disk, the file is installed all the same: only a
// process that is killed would leave something, and only a list that has changed by then keeps the
// next run from writing the same file again.
void NoteFolder(const std::string& folder) {
  if (!foldersInUse.insert(folder).second || folder.empty()) return;
  platform::OutputFile note(kUnfinishedFolders, platform::OutputFile::Mode::kAppend);
  const std::string line = "\n" + folder + "\n";  // the line before may have been cut
  if (note.IsOpen()) static_cast<void>(note.Write(line.data(), line.size()));
}

std::string ReadNote() {
  constexpr std::uint32_t kLongest = std::uint32_t{1} << 24;
  platform::InputFile note(kUnfinishedFolders);
  std::string text(std::min(note.Size(), kLongest), '\0');
  text.resize(note.Read(text.data(), static_cast<std::uint32_t>(text.size())));
  return text;
}

// Whenever the process ends, the path holds the old file or the new one, always whole. The cache
// may vouch for the path from before, so that half of a file would be believed.
//
// A file that is missing while the cache still vouches for it would be believed as soon as its name
// reappears, so what it holds goes to the disk first.
//
// A result of kCreate stands for a system that refuses this way.
InstallResult InstallInOneStep(const FileRecord& record, const DataBlock& content,
                               std::size_t length) {
  const std::string folder = FolderOf(record.path);
  const std::string unfinished = folder + kUnfinishedFile;
  NoteFolder(folder);
  platform::OutputFile file(unfinished, platform::OutputFile::Mode::kReplace);

  const bool isOpen = file.IsOpen();
  const bool isWritten = isOpen && file.Write(content.data(), length) &&
                         (!IsVerifiedUnchanged(record) || file.Flush()) && file.Close();
  const auto move = [&] { return platform::MoveFileOver(unfinished, record.path); };
  if (isWritten && UntilNotHeld(move)) return {InstallStep::kDone};

  const bool isRefused = !isOpen || isWritten;
  const auto result = FailedAt(isRefused ? InstallStep::kCreate : InstallStep::kWrite);
  file.Close();
  if (!Discard(unfinished)) leftUnfinishedFile = true;
  return result;
}

// Whatever ends this half-way, a full disk or the end of the process, nothing may vouch for the
// file then. But as long as it isn't known that it can be written, the cache stays as it is.
InstallResult InstallInPlace(const FileRecord& record, const DataBlock& content,
                             std::size_t length) {
  const std::string& path = record.path;
  if (platform::FileExists(path) && !platform::CanBeWritten(path)) {
    return FailedAt(InstallStep::kCreate);
  }
  const bool isVouchedFor = HasVerifiedEntry(path);
  if (isVouchedFor && !UntilNotHeld(SetCacheFileAside)) return FailedAt(InstallStep::kCreate);

  platform::OutputFile file(path, platform::OutputFile::Mode::kReplace);
  if (!file.IsOpen()) {
    const InstallResult result = FailedAt(InstallStep::kCreate);
    if (isVouchedFor) static_cast<void>(UntilNotHeld(BringCacheFileBack));
    return result;
  }
  if (!file.Write(content.data(), length) || !file.Flush() || !file.Close()) {
    const InstallResult result = FailedAt(InstallStep::kWrite);
    DistrustFile(path);
    return result;
  }
  if (isVouchedFor) static_cast<void>(UntilNotHeld(BringCacheFileBack));
  return {InstallStep::kDone};
}

}  // namespace

InstallResult InstallFile(const FileRecord& record, const DataBlock& content, std::size_t length) {
  if (!platform::MakeDirectoriesOf(record.path)) return FailedAt(InstallStep::kDirectory);
  const InstallResult result = InstallInOneStep(record, content, length);
  // On a disk that is full or broken the old file is worth more than another attempt.
  const bool isRefused =
      result.step == InstallStep::kCreate && !platform::IsDiskTrouble(result.error);
  return isRefused ? InstallInPlace(record, content, length) : result;
}

void DiscardUnfinishedFiles() {
  foldersInUse.clear();
  everyFlushWorked = true;
  waitsInVain = 0;
  leftUnfinishedFile = !Discard(kUnfinishedFile);
  const std::string note = ReadNote();
  for (std::string_view rest = note; !rest.empty();) {
    const std::string folder(TakeTextLine(rest));
    // A line that was cut with the process may end in half a name.
    const bool isWhole = FolderOf(folder + kUnfinishedFile) == folder;
    if (isWhole && !Discard(folder + kUnfinishedFile)) leftUnfinishedFile = true;
  }
  DiscardCacheFileAside();
  EndInstalling();
}

bool FlushInstalledFiles() {
  if (!foldersInUse.empty() && !platform::FlushFolders(foldersInUse)) everyFlushWorked = false;
  foldersInUse.clear();
  return everyFlushWorked;
}

void EndInstalling() {
  DiscardCacheFileAside();
  if (!leftUnfinishedFile) static_cast<void>(platform::RemoveFile(kUnfinishedFolders));
}

}  // namespace velmora
