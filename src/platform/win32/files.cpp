#include "platform/files.h"

// windows.h comes first: the others don't stand by themselves.
// clang-format off
#include <windows.h>
#include <dbghelp.h>
#include <shlwapi.h>
// clang-format on

#include <utility>
#include <vector>

#include "base/text.h"
#include "platform/win32/last_error.h"
#include "platform/win32/wide_text.h"

namespace velmora::platform {

namespace {

const std::intptr_t kNoFile = reinterpret_cast<std::intptr_t>(INVALID_HANDLE_VALUE);

// Of this header's operations only: the system's own changes with every call that anyone makes.
thread_local std::int32_t lastError = 0;

bool Fail(DWORD code) {
  lastError = static_cast<std::int32_t>(code);
  return false;
}

// Keeps the reason of a failure before another call can overwrite it.
bool Remember(bool succeeded) { return succeeded || Fail(GetLastError()); }

HANDLE HandleOf(std::intptr_t file) { return reinterpret_cast<HANDLE>(file); }

// INVALID_HANDLE_VALUE stands for the process itself, which the system would "close" with success.
bool CloseIfOpen(std::intptr_t file) {
  return file == kNoFile ? Fail(ERROR_INVALID_HANDLE)
                         : Remember(CloseHandle(HandleOf(file)) != FALSE);
}

// Names such as CON open a device, from which a read may wait for ever.
std::intptr_t OnlyDiskFile(HANDLE file) {
  if (!Remember(file != INVALID_HANDLE_VALUE)) return kNoFile;
  if (GetFileType(file) == FILE_TYPE_DISK) return reinterpret_cast<std::intptr_t>(file);
  CloseHandle(file);
  Fail(ERROR_ACCESS_DENIED);
  return kNoFile;
}

std::intptr_t OpenToRead(const std::string& path) {
  return OnlyDiskFile(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

// What an attribute keeps from being written: the call that replaces a file fails for these, as far
// as the system looks at them by itself.
bool IsProtected(DWORD attributes) {
  constexpr DWORD kProtects =
      FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kProtects) != 0;
}

std::intptr_t OpenToReplace(const std::string& path) {
  if (IsProtected(GetFileAttributesA(path.c_str()))) {
    Fail(ERROR_ACCESS_DENIED);
    return kNoFile;
  }
  return OnlyDiskFile(CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

// With no right but this one, the system itself puts every write at the end, so several threads and
// processes may write the log at once.
std::intptr_t OpenToAppend(const std::string& path) {
  return OnlyDiskFile(CreateFileA(path.c_str(), FILE_APPEND_DATA,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

// A copy takes the attributes of its source over.
bool ClearReadOnly(const std::string& path) {
  const DWORD attributes = GetFileAttributesA(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return false;
  if ((attributes & FILE_ATTRIBUTE_READONLY) == 0) return true;
  const DWORD writable = attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
  return SetFileAttributesA(path.c_str(), writable) != FALSE;
}

// A link's own directory is elsewhere; other reparse points, as of files kept in a cloud, are here.
bool IsLinkItself(const WIN32_FIND_DATAA& found) {
  return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         IsReparseTagNameSurrogate(found.dwReserved0);
}

// A separator at the end of a path leads through a link.
std::string WithoutLastSeparators(const std::string& path) {
  std::size_t length = 0;
  for (std::size_t i = 0; i < path.size(); i += CharacterLength(path, i)) {
    if (path[i] != '\\' && path[i] != '/') length = i + CharacterLength(path, i);
  }
  return path.substr(0, length);
}

bool HasOtherNames(const std::string& path) {
  const HANDLE file =
      CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  BY_HANDLE_FILE_INFORMATION information{};
  const bool told = GetFileInformationByHandle(file, &information) != FALSE;
  CloseHandle(file);
  return told && information.nNumberOfLinks > 1;
}

// A file system journals its names and not what files hold, so that goes to the disk first.
bool FlushHandle(HANDLE file) {
  if (FlushFileBuffers(file)) return true;
  const DWORD reason = GetLastError();
  // Such a volume knows no flushing.
  return reason == ERROR_INVALID_FUNCTION || reason == ERROR_NOT_SUPPORTED || Fail(reason);
}

// One that nobody may write has nothing to be flushed.
bool FlushFile(const std::string& path) {
  if (IsProtected(GetFileAttributesA(path.c_str()))) return true;
  const HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (!Remember(file != INVALID_HANDLE_VALUE)) return false;
  const bool flushed = FlushHandle(file);
  CloseHandle(file);
  return flushed;
}

// The path with its last element as the file has it on disk: a list may spell it otherwise.
std::string AsOnDisk(const std::string& path) {
  WIN32_FIND_DATAA found{};
  const HANDLE search = FindFirstFileA(path.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return path;
  FindClose(search);
  const std::string name = found.cFileName;
  const auto* last = PathFindFileNameA(path.c_str());
  if (lstrcmpiA(last, name.c_str()) != 0) return path;  // a short name, or one beyond the code page
  return path.substr(0, static_cast<std::size_t>(last - path.c_str())) + name;
}

// Whether somebody keeps the file from being replaced. Asked first, since Wine's replacement leaves
// a temporary file after each failure, and Windows' may move a running program away.
bool CanBeReplaced(const std::string& path) {
  const HANDLE file = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (!Remember(file != INVALID_HANDLE_VALUE)) return false;
  CloseHandle(file);
  return true;
}

// Keeps what the old file had of its own. On a volume that has no such things a plain move does;
// and should this fail between its own two steps, the old file is gone and the move is due.
bool ReplaceExisting(const std::string& from, const std::string& to) {
  if (!CanBeReplaced(to)) return false;
  if (ReplaceFileA(AsOnDisk(to).c_str(), from.c_str(), nullptr, 0, nullptr, nullptr)) return true;
  const DWORD reason = GetLastError();
  const bool isMoveDue = reason == ERROR_UNABLE_TO_MOVE_REPLACEMENT ||
                         reason == ERROR_UNABLE_TO_MOVE_REPLACEMENT_2 ||
                         reason == ERROR_INVALID_FUNCTION || reason == ERROR_NOT_SUPPORTED;
  if (!isMoveDue) return Fail(reason);
  return Remember(MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE);
}

// Everything in front of the last backslash, with it; empty if there is none.
std::string DirectoryPart(const std::string& path) {
  std::size_t length = 0;
  for (std::size_t i = 0; i < path.size(); i += CharacterLength(path, i)) {
    if (path[i] == '\\') length = i + 1;
  }
  return path.substr(0, length);
}

}  // namespace

bool FileExists(const std::string& path) {
  return Remember(PathFileExistsA(path.c_str()) != FALSE);
}

bool IsDirectory(const std::string& path) {
  return Remember(PathIsDirectoryA(path.c_str()) != FALSE);
}

bool IsLink(const std::string& path) {
  WIN32_FIND_DATAA found{};
  const HANDLE search = FindFirstFileA(WithoutLastSeparators(path).c_str(), &found);
  if (!Remember(search != INVALID_HANDLE_VALUE)) return false;
  FindClose(search);
  return IsLinkItself(found);
}

bool RemoveFile(const std::string& path) {
  if (DeleteFileA(path.c_str())) return true;
  // A link to a directory is one for the system, and goes like an empty one.
  const DWORD reason = GetLastError();
  if (IsLink(path)) return Remember(RemoveDirectoryA(WithoutLastSeparators(path).c_str()) != FALSE);
  return Fail(reason);
}

bool MoveFileOver(const std::string& from, const std::string& to) {
  const DWORD attributes = GetFileAttributesA(to.c_str());
  const bool exists = attributes != INVALID_FILE_ATTRIBUTES;
  // These don't pass by waiting, unlike what the system denies.
  if (exists && (IsProtected(attributes) || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)) {
    return Fail(ERROR_NOT_SUPPORTED);
  }
  if (exists && (IsLink(to) || HasOtherNames(to))) return Fail(ERROR_ALREADY_EXISTS);
  if (!FlushFile(from)) return false;
  if (exists) return ReplaceExisting(from, to);
  return Remember(MoveFileExA(from.c_str(), to.c_str(), 0) != FALSE);
}

bool CanBeWritten(const std::string& path) {
  if (IsProtected(GetFileAttributesA(path.c_str()))) return Fail(ERROR_ACCESS_DENIED);
  const HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (!Remember(file != INVALID_HANDLE_VALUE)) return false;
  CloseHandle(file);
  return true;
}

bool IsHeldByAnother(std::int32_t code) {
  switch (static_cast<DWORD>(code)) {
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
    case ERROR_UNABLE_TO_REMOVE_REPLACED:
      return true;
    default:
      return false;
  }
}

bool IsDiskTrouble(std::int32_t code) {
  switch (static_cast<DWORD>(code)) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_IO_DEVICE:
    case ERROR_CRC:
      return true;
    default:
      return false;
  }
}

// Each file was flushed before it was moved, and the system keeps the order of its changes of
// names.
bool FlushFolders(const std::set<std::string>&) { return true; }

bool RemoveEmptyDirectory(const std::string& path) {
  return Remember(RemoveDirectoryA(path.c_str()) != FALSE);
}

bool CopyFileOver(const std::string& from, const std::string& to) {
  return Remember(CopyFileA(from.c_str(), to.c_str(), FALSE) != FALSE && ClearReadOnly(to));
}

bool MakeDirectoriesOf(const std::string& path) {
  const std::string directory = DirectoryPart(path);
  if (directory.empty()) return true;
  // A file in the place of the last directory passes for one here.
  if (!Remember(MakeSureDirectoryPathExists(path.c_str()) != FALSE)) return false;
  return PathIsDirectoryA(directory.c_str()) != FALSE || Fail(ERROR_DIRECTORY);
}

InputFile::InputFile(const std::string& path) : file_(OpenToRead(path)) {
  if (IsOpen()) size_ = GetFileSize(HandleOf(file_), nullptr);
}

InputFile::~InputFile() { CloseIfOpen(file_); }

bool InputFile::IsOpen() const { return file_ != kNoFile; }

std::uint32_t InputFile::Size() const { return size_; }

std::uint32_t InputFile::Read(void* buffer, std::uint32_t size) {
  DWORD count = 0;
  Remember(ReadFile(HandleOf(file_), buffer, size, &count, nullptr) != FALSE);
  return count;
}

OutputFile::OutputFile(const std::string& path, Mode mode)
    : file_(mode == Mode::kReplace ? OpenToReplace(path) : OpenToAppend(path)) {}

OutputFile::~OutputFile() { CloseIfOpen(file_); }

bool OutputFile::IsOpen() const { return file_ != kNoFile; }

bool OutputFile::Write(const void* data, std::size_t size) {
  DWORD count = 0;
  const BOOL taken = WriteFile(HandleOf(file_), data, static_cast<DWORD>(size), &count, nullptr);
  if (!Remember(taken != FALSE)) return false;
  return count == size || Fail(ERROR_DISK_FULL);
}

bool OutputFile::Flush() { return FlushHandle(HandleOf(file_)); }

bool OutputFile::Close() { return CloseIfOpen(std::exchange(file_, kNoFile)); }

struct DirectorySearch::Listing {
  std::vector<DirectoryEntry> entries;
  std::size_t next = 0;
};

namespace {

DirectoryEntry EntryOf(const WIN32_FIND_DATAA& found) {
  const bool leadsDown = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  const bool isLink = IsLinkItself(found);
  return {found.cFileName, leadsDown && !isLink, leadsDown && isLink};
}

// Reads a directory whole and closes the search, which would keep the directory from being removed.
// A search that breaks off has listed what it has listed.
bool ReadEntries(const std::string& searchPath, std::vector<DirectoryEntry>& entries) {
  WIN32_FIND_DATAA found{};
  const HANDLE search = FindFirstFileA(searchPath.c_str(), &found);
  if (!Remember(search != INVALID_HANDLE_VALUE)) return false;
  do {
    entries.push_back(EntryOf(found));
  } while (FindNextFileA(search, &found));
  FindClose(search);
  return true;
}

}  // namespace

DirectorySearch::DirectorySearch(const std::string& searchPath) {
  auto listing = std::make_unique<Listing>();
  if (ReadEntries(searchPath, listing->entries)) listing_ = std::move(listing);
}

DirectorySearch::~DirectorySearch() = default;

bool DirectorySearch::Started() const { return listing_ != nullptr; }

bool DirectorySearch::Next(DirectoryEntry& entry) {
  if (!Started() || listing_->next == listing_->entries.size()) return false;
  entry = std::move(listing_->entries[listing_->next++]);
  return true;
}

std::int32_t LastSystemError() { return lastError; }

std::string SystemErrorText(std::int32_t code) {
  constexpr DWORD kUsersLanguage = 0x400;
  wchar_t* text = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM,
      nullptr, static_cast<DWORD>(code), kUsersLanguage, reinterpret_cast<wchar_t*>(&text), 0,
      nullptr);
  if (length == 0) return FormatText("Unknown error %d", code);
  const std::string result = ReadableText({text, length});
  LocalFree(text);
  return result;
}

}  // namespace velmora::platform
