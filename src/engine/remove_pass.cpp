#include "engine/remove_pass.h"

#include <cstdint>
#include <optional>

#include "base/text.h"
#include "base/texts.h"
#include "engine/update_state.h"
#include "platform/dialog.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "settings/session_log.h"

namespace velmora {
namespace {

constexpr char kEverything[] = "*.*";

void ShowRemoval(const FileRecord& record, std::int32_t index, std::uint32_t total) {
  platform::SetStatusText(
      FormatText("%s %d / %d \n", texts::kRemoving, index, static_cast<std::int32_t>(total)) +
      record.path);
}

void ShowEntry(const std::string& fullPath) {
  platform::SetStatusText(texts::kRemovingEntry + fullPath);
}

// A path that is too long is left alone: cut short, it would name something else.
bool RefusePath(const std::string& path) {
  LogMessage("[Error] RemoveFiles() path can't be used, left alone : %s \n", path.c_str());
  return false;
}

void RemoveDirectoryOrLog(const std::string& path) {
  if (!platform::RemoveEmptyDirectory(path)) {
    LogMessage("[Error]RemoveDirectory() %s Couldn't delete this directory. \n", path.c_str());
  }
}

bool RemoveTree(const std::string& path) {
  std::string buffer = ".\\" + path + "\\*";
  if (buffer.size() > platform::kMaxPath) return RefusePath(path);
  const bool result = RemoveFiles(buffer, kEverything);
  buffer.resize(buffer.size() - 2);
  RemoveDirectoryOrLog(buffer);
  return result;
}

bool RemoveDirectoryEntry(const std::string& fullPath, const std::string& pattern) {
  const std::string searchPath = fullPath + "\\*";
  if (searchPath.size() > platform::kMaxPath) return RefusePath(fullPath);
  ShowEntry(fullPath);
  const bool result = RemoveFiles(searchPath, pattern);
  if (pattern != kEverything) return result;
  if (!result) {
    LogMessage("[Error] RemoveFiles() %s Couldn't delete this file. \n", searchPath.c_str());
  }
  RemoveDirectoryOrLog(fullPath + "\\");
  return result;
}

bool RemoveFileEntry(const std::string& fullPath) {
  ShowEntry(fullPath);
  const bool removed = platform::RemoveFile(fullPath);
  if (removed) {
    LogMessage("[RemoveDir] DeleteFile( %s ) Succeed. \n", fullPath.c_str());
  } else {
    LogMessage("[Error] DeleteFile() %s Couldn't delete this file. \n", fullPath.c_str());
  }
  return removed;
}

// The target of a link isn't part of the installation. The log tells a player who replaced a folder
// by a link to another disk why files have stayed.
bool SkipLink(const std::string& fullPath) {
  LogMessage("[RemoveDir] %s is a link to a folder, left alone. \n", fullPath.c_str());
  return true;
}

bool RemoveEntry(const std::string& directory, const platform::DirectoryEntry& entry,
                 const std::string& pattern) {
  if (entry.name == "." || entry.name == "..") return true;
  const std::optional<std::string> fullPath = platform::JoinPath(directory, entry.name);
  if (!fullPath) return RefusePath(directory + entry.name);
  if (entry.isDirectory) return RemoveDirectoryEntry(*fullPath, pattern);
  if (entry.isDirectoryLink && pattern != kEverything) return SkipLink(*fullPath);
  return !platform::MatchPathPattern(*fullPath, pattern) || RemoveFileEntry(*fullPath);
}

}  // namespace

bool RemovePass(const FileRecordSet& removeSet) {
  std::int32_t index = 0;
  for (const FileRecord& record : removeSet) {
    if (UpdateState == kCancelAsked) return false;
    ShowRemoval(record, index, removeSet.Count());
    if (!RemoveItem(record.path, record.transferHash)) {
      LogMessage("[Error] RemoveFiles( %s ) Couldn't delete this file. \n", record.path.c_str());
    }
    platform::StepBar(platform::Control::kOverallBar);
    ++index;
  }
  return true;
}

bool RemoveItem(const std::string& path, const std::string& mode) {
  if (!mode.empty() && mode.front() == 'R') return RemoveFiles(".\\*", path);
  // Of a link to a directory only the link is removed.
  if (platform::IsDirectory(path) && !platform::IsLink(path)) return RemoveTree(path);
  return platform::RemoveFile(path);
}

bool RemoveFiles(const std::string& searchPath, const std::string& pattern) {
  const std::string directory = searchPath.substr(0, searchPath.size() - 1);
  const auto entries = platform::ListDirectory(directory);
  if (!entries) {
    LogMessage("RemoveFiles() : FindFirstFile() :: Couldn't find file %s.\n", searchPath.c_str());
    return false;
  }
  bool result = true;
  for (const platform::DirectoryEntry& entry : *entries) {
    if (UpdateState == kCancelAsked) return false;
    if (!RemoveEntry(directory, entry, pattern)) result = false;
  }
  return result;
}

}  // namespace velmora
