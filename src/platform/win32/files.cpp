#include "platform/files.h"

// windows.h comes first: the other headers need it.
// clang-format off
#include <windows.h>
#include <dbghelp.h>
#include <shlwapi.h>
// clang-format on

#include <string_view>
#include <utility>
#include <vector>

#include "base/ascii.h"
#include "base/text.h"
#include "platform/win32/flush.h"
#include "platform/win32/utf16.h"

namespace velmora::platform {

namespace {

const std::intptr_t kNoFile = reinterpret_cast<std::intptr_t>(INVALID_HANDLE_VALUE);

// Of this header's operations only: the system's own code changes with any call in this thread.
thread_local std::int32_t lastError = 0;

}  // namespace

bool Fail(DWORD code) {
  lastError = static_cast<std::int32_t>(code);
  return false;
}

// A file system journals names but not the content of files, so the content is flushed first.
bool FlushHandle(HANDLE file) {
  if (FlushFileBuffers(file)) return true;
  const DWORD reason = GetLastError();
  // The volume has no such operation.
  return reason == ERROR_INVALID_FUNCTION || reason == ERROR_NOT_SUPPORTED || Fail(reason);
}

namespace {

// Keeps the code of a failure before another call can overwrite it.
bool RecordError(bool succeeded) { return succeeded || Fail(GetLastError()); }

HANDLE HandleOf(std::intptr_t file) { return reinterpret_cast<HANDLE>(file); }

// INVALID_HANDLE_VALUE is also the pseudo-handle of the process, so closing it would succeed.
bool CloseIfOpen(std::intptr_t file) {
  return file == kNoFile ? Fail(ERROR_INVALID_HANDLE)
                         : RecordError(CloseHandle(HandleOf(file)) != FALSE);
}

// Takes the handle if it is of a file on disk. A name such as CON opens a device, from which a read
// may never return.
std::intptr_t AcceptDiskFile(HANDLE file) {
  if (!RecordError(file != INVALID_HANDLE_VALUE)) return kNoFile;
  if (GetFileType(file) == FILE_TYPE_DISK) return reinterpret_cast<std::intptr_t>(file);
  CloseHandle(file);
  Fail(ERROR_ACCESS_DENIED);
  return kNoFile;
}

HANDLE OpenExisting(const std::string& path, DWORD access, DWORD sharing) {
  return CreateFileA(path.c_str(), access, sharing, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                     nullptr);
}

bool CanBeOpened(const std::string& path, DWORD access, DWORD sharing) {
  const HANDLE file = OpenExisting(path, access, sharing);
  if (!RecordError(file != INVALID_HANDLE_VALUE)) return false;
  CloseHandle(file);
  return true;
}

// Attributes that protect a file from being replaced. Not every call of the system heeds each of
// them.
bool IsProtected(DWORD attributes) {
  constexpr DWORD kProtects =
      FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kProtects) != 0;
}

std::intptr_t OpenToRead(const std::string& path) {
  return AcceptDiskFile(OpenExisting(path, GENERIC_READ, FILE_SHARE_READ));
}

std::intptr_t OpenToReplace(const std::string& path) {
  if (IsProtected(GetFileAttributesA(path.c_str()))) {
    Fail(ERROR_ACCESS_DENIED);
    return kNoFile;
  }
  return AcceptDiskFile(CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

// With FILE_APPEND_DATA alone, the system itself puts each write at the end, so several threads and
// processes may write the log at once.
std::intptr_t OpenToAppend(const std::string& path) {
  return AcceptDiskFile(CreateFileA(path.c_str(), FILE_APPEND_DATA,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
}

// A copy has the attributes of its source.
bool ClearReadOnly(const std::string& path) {
  const DWORD attributes = GetFileAttributesA(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return false;
  if ((attributes & FILE_ATTRIBUTE_READONLY) == 0) return true;
  const DWORD writable = attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
  return SetFileAttributesA(path.c_str(), writable) != FALSE;
}

// Not every reparse point is a link: files that are kept in a cloud are none.
bool IsLinkEntry(const WIN32_FIND_DATAA& found) {
  return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         IsReparseTagNameSurrogate(found.dwReserved0);
}

// `path` without what follows the last character that matches; empty if none does.
std::string UpToLast(const std::string& path, bool (*matches)(std::string_view character)) {
  const char* end = path.data();
  for (const std::string_view character : Characters(path)) {
    if (matches(character)) end = character.data() + character.size();
  }
  return {path.data(), end};
}

// A path with a separator at its end leads through a link.
std::string WithoutTrailingSeparators(const std::string& path) {
  return UpToLast(path, [](std::string_view character) { return !IsSeparator(character[0]); });
}

bool HasOtherNames(const std::string& path) {
  const HANDLE file = OpenExisting(path, 0, kShareAll);
  if (file == INVALID_HANDLE_VALUE) return false;
  BY_HANDLE_FILE_INFORMATION information{};
  const bool succeeded = GetFileInformationByHandle(file, &information) != FALSE;
  CloseHandle(file);
  return succeeded && information.nNumberOfLinks > 1;
}

// A protected file can't have been written.
bool FlushFile(const std::string& path) {
  if (IsProtected(GetFileAttributesA(path.c_str()))) return true;
  const HANDLE file = OpenExisting(path, GENERIC_WRITE, FILE_SHARE_READ);
  if (!RecordError(file != INVALID_HANDLE_VALUE)) return false;
  const bool flushed = FlushHandle(file);
  CloseHandle(file);
  return flushed;
}

// The path with the file's name as it is on disk: a list may write it in another case.
std::string WithNameOnDisk(const std::string& path) {
  WIN32_FIND_DATAA found{};
  const HANDLE search = FindFirstFileA(path.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return path;
  FindClose(search);
  const std::string name = found.cFileName;
  const auto* last = PathFindFileNameA(path.c_str());
  // They differ in more for a short name, and for one outside the code page.
  if (lstrcmpiA(last, name.c_str()) != 0) return path;
  return path.substr(0, static_cast<std::size_t>(last - path.c_str())) + name;
}

// ReplaceFileA keeps the old file's access list, attributes and streams. A plain move is right on a
// volume without these, and when ReplaceFileA failed after it had removed the old file.
bool ReplaceExisting(const std::string& from, const std::string& to) {
  // Checked first: after a failure Wine's ReplaceFileA leaves a temporary file behind, and Windows'
  // may move a running program away.
  if (!CanBeOpened(to, GENERIC_READ | GENERIC_WRITE | DELETE, kShareAll)) return false;
  const std::string target = WithNameOnDisk(to);
  if (ReplaceFileA(target.c_str(), from.c_str(), nullptr, 0, nullptr, nullptr)) return true;
  const DWORD reason = GetLastError();
  const bool isMoveDue = reason == ERROR_UNABLE_TO_MOVE_REPLACEMENT ||
                         reason == ERROR_UNABLE_TO_MOVE_REPLACEMENT_2 ||
                         reason == ERROR_INVALID_FUNCTION || reason == ERROR_NOT_SUPPORTED;
  if (!isMoveDue) return Fail(reason);
  return RecordError(MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE);
}

// Everything up to the last backslash, which is included; empty if there is none.
std::string DirectoryPart(const std::string& path) {
  return UpToLast(path, [](std::string_view character) { return character == "\\"; });
}

}  // namespace

bool FileExists(const std::string& path) {
  return RecordError(PathFileExistsA(path.c_str()) != FALSE);
}

bool IsDirectory(const std::string& path) {
  return RecordError(PathIsDirectoryA(path.c_str()) != FALSE);
}

bool IsLink(const std::string& path) {
  WIN32_FIND_DATAA found{};
  const HANDLE search = FindFirstFileA(WithoutTrailingSeparators(path).c_str(), &found);
  if (!RecordError(search != INVALID_HANDLE_VALUE)) return false;
  FindClose(search);
  return IsLinkEntry(found);
}

bool RemoveFile(const std::string& path) {
  if (DeleteFileA(path.c_str())) return true;
  // The system removes a link to a directory as it removes an empty directory.
  const DWORD reason = GetLastError();
  return IsLink(path) ? RemoveEmptyDirectory(WithoutTrailingSeparators(path)) : Fail(reason);
}

bool MoveFileOver(const std::string& from, const std::string& to) {
  const DWORD attributes = GetFileAttributesA(to.c_str());
  const bool exists = attributes != INVALID_FILE_ATTRIBUTES;
  // Waiting doesn't help against these, unlike the system's own ERROR_ACCESS_DENIED.
  if (exists && (IsProtected(attributes) || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)) {
    return Fail(ERROR_NOT_SUPPORTED);
  }
  if (exists && (IsLink(to) || HasOtherNames(to))) return Fail(ERROR_ALREADY_EXISTS);
  if (!FlushFile(from)) return false;
  if (exists) return ReplaceExisting(from, to);
  return RecordError(MoveFileExA(from.c_str(), to.c_str(), 0) != FALSE);
}

bool CanBeWritten(const std::string& path) {
  if (IsProtected(GetFileAttributesA(path.c_str()))) return Fail(ERROR_ACCESS_DENIED);
  return CanBeOpened(path, GENERIC_WRITE, FILE_SHARE_READ);
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

// Each file was flushed before it was moved, and the file system keeps the order of renames.
bool FlushFolders(const std::set<std::string>&) { return true; }

bool RemoveEmptyDirectory(const std::string& path) {
  return RecordError(RemoveDirectoryA(path.c_str()) != FALSE);
}

bool CopyFileOver(const std::string& from, const std::string& to) {
  return RecordError(CopyFileA(from.c_str(), to.c_str(), FALSE) != FALSE && ClearReadOnly(to));
}

bool MakeDirectoriesOf(const std::string& path) {
  const std::string directory = DirectoryPart(path);
  if (directory.empty()) return true;
  // The call succeeds even if the last directory is a file.
  if (!RecordError(MakeSureDirectoryPathExists(path.c_str()) != FALSE)) return false;
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
  RecordError(ReadFile(HandleOf(file_), buffer, size, &count, nullptr) != FALSE);
  return count;
}

OutputFile::OutputFile(const std::string& path, Mode mode)
    : file_(mode == Mode::kReplace ? OpenToReplace(path) : OpenToAppend(path)) {}

OutputFile::~OutputFile() { CloseIfOpen(file_); }

bool OutputFile::IsOpen() const { return file_ != kNoFile; }

bool OutputFile::Write(const void* data, std::size_t size) {
  DWORD count = 0;
  const BOOL written = WriteFile(HandleOf(file_), data, static_cast<DWORD>(size), &count, nullptr);
  if (!RecordError(written != FALSE)) return false;
  return count == size || Fail(ERROR_DISK_FULL);
}

bool OutputFile::Flush() { return FlushHandle(HandleOf(file_)); }

bool OutputFile::Close() { return CloseIfOpen(std::exchange(file_, kNoFile)); }

namespace {

DirectoryEntry EntryOf(const WIN32_FIND_DATAA& found) {
  const bool leadsDown = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  const bool isLink = IsLinkEntry(found);
  return {found.cFileName, leadsDown && !isLink, leadsDown && isLink};
}

}  // namespace

// Closes the search before anything is done with the entries: an open one keeps the directory from
// being removed. A listing that breaks off holds what it had read by then.
std::optional<std::vector<DirectoryEntry>> ListDirectory(const std::string& directory) {
  WIN32_FIND_DATAA found{};
  const HANDLE search = FindFirstFileA((directory + "*").c_str(), &found);
  if (!RecordError(search != INVALID_HANDLE_VALUE)) return std::nullopt;
  std::vector<DirectoryEntry> entries;
  do {
    entries.push_back(EntryOf(found));
  } while (FindNextFileA(search, &found));
  FindClose(search);
  return entries;
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
  const std::string result = FromUtf16({text, length});
  LocalFree(text);
  return result;
}

}  // namespace velmora::platform
