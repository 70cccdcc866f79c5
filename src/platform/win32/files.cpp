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

std::intptr_t OpenToReplace(const std::string& path) {
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
  const HANDLE search = FindFirstFileA(path.c_str(), &found);
  if (!Remember(search != INVALID_HANDLE_VALUE)) return false;
  FindClose(search);
  return IsLinkItself(found);
}

bool RemoveFile(const std::string& path) {
  if (DeleteFileA(path.c_str())) return true;
  // A link to a directory is one for the system, and goes like an empty one.
  const DWORD reason = GetLastError();
  if (IsLink(path)) return Remember(RemoveDirectoryA(path.c_str()) != FALSE);
  return Fail(reason);
}

bool MoveFileOver(const std::string& from, const std::string& to) {
  const DWORD attributes = GetFileAttributesA(to.c_str());
  const bool exists = attributes != INVALID_FILE_ATTRIBUTES;
  if (exists && (attributes & FILE_ATTRIBUTE_READONLY) != 0) return Fail(ERROR_ACCESS_DENIED);
  if (exists && (IsLink(to) || HasOtherNames(to))) return Fail(ERROR_ALREADY_EXISTS);
  return Remember(MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE);
}

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

bool OutputFile::Close() { return CloseIfOpen(std::exchange(file_, kNoFile)); }

struct DirectorySearch::Listing {
  std::vector<DirectoryEntry> entries;
  std::size_t next = 0;
};

namespace {

bool IsDirectoryItself(const WIN32_FIND_DATAA& found) {
  return (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && !IsLinkItself(found);
}

// Reads a directory whole and closes the search, which would keep the directory from being removed.
// A search that breaks off has listed what it has listed.
bool ReadEntries(const std::string& searchPath, std::vector<DirectoryEntry>& entries) {
  WIN32_FIND_DATAA found{};
  const HANDLE search = FindFirstFileA(searchPath.c_str(), &found);
  if (!Remember(search != INVALID_HANDLE_VALUE)) return false;
  do {
    entries.push_back({found.cFileName, IsDirectoryItself(found)});
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
