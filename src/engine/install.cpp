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

// The folders that this run has installed into, each with its last separator; the working directory
// is "".
std::set<std::string> foldersInUse;
bool everyFlushWorked = true;
bool leftUnfinishedFile = false;
int waitsInVain = 0;

InstallResult FailedAt(InstallStep step) { return {step, platform::LastSystemError()}; }

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.size() - platform::LastPathElement(path).size());
}

// A virus scanner holds each new file for a moment, so the step is repeated for a while. If several
// waits were in vain, something else holds files, and the run waits no more.
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

// If the note can't be written, as on a full disk, the file is installed all the same. An
// unfinished file would stay only if the process is killed and the list has changed by the next
// run, which otherwise writes the same file again.
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

// Whenever the process ends, the path holds the old file or the new one, always whole. Half a file
// would be believed, because the cache may still vouch for the path.
//
// If the file is missing while the cache vouches for it, it is believed as soon as its name
// reappears. So its content is flushed first.
//
// A result of kCreate means that the system refuses to replace the file.
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

// If a full disk or the end of the process interrupts this, nothing may vouch for the file. But the
// cache stays as it is until the file is known to be writable.
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
  // On a full or broken disk, another attempt would only put the old file at risk.
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
    // The last line may be cut in the middle of a name.
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
