#include "platform/disk.h"

#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "base/text.h"
#include "platform/files.h"
#include "platform/win32/utf16.h"

namespace velmora::platform {

namespace fs = std::filesystem;

namespace {

// Null if this version of the system has none.
template <typename Function>
Function SystemFunction(const char* name) {
  const auto function = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name);
  return reinterpret_cast<Function>(reinterpret_cast<void*>(function));
}

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// std::filesystem takes what is in front of such a path for the name of a folder.
std::wstring WithoutDevicePrefix(const std::wstring& path) {
  constexpr std::wstring_view kDevices = LR"(\\?\)";
  constexpr std::wstring_view kShares = LR"(\\?\UNC\)";
  if (path.starts_with(kShares)) return LR"(\\)" + path.substr(kShares.size());
  return path.starts_with(kDevices) ? path.substr(kDevices.size()) : path;
}

// Other than generic_wstring, which takes a slash from the path of a share.
std::wstring WithSlashes(const fs::path& path) {
  std::wstring text = path.native();
  std::replace(text.begin(), text.end(), L'\\', L'/');
  return text;
}

fs::file_type KindOf(const WIN32_FIND_DATAW& found) {
  // Not every reparse point is a link: files that are kept in a cloud are none.
  const bool isLink = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
                      IsReparseTagNameSurrogate(found.dwReserved0);
  if (isLink) return fs::file_type::symlink;
  const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return isFolder ? fs::file_type::directory : fs::file_type::regular;
}

bool IsOfEveryFolder(const std::wstring& name) { return name == L"." || name == L".."; }

std::error_code ErrorOf(DWORD code) { return {static_cast<int>(code), std::system_category()}; }

std::error_code LastError() { return ErrorOf(GetLastError()); }

bool IsMissing(DWORD code) {
  return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND || code == ERROR_INVALID_NAME;
}

HANDLE Open(const fs::path& path, DWORD access) {
  return CreateFileW(path.c_str(), access, kShareAll, nullptr, OPEN_EXISTING,
                     FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

// The path to which an existing one leads; empty if the system doesn't say.
std::wstring FinalPath(const fs::path& path) {
  const HANDLE file = Open(path, 0);
  if (file == INVALID_HANDLE_VALUE) return {};
  std::wstring text(GetFinalPathNameByHandleW(file, nullptr, 0, 0), L'\0');
  text.resize(GetFinalPathNameByHandleW(file, text.data(), static_cast<DWORD>(text.size()), 0));
  CloseHandle(file);
  return WithoutDevicePrefix(text);
}

// Other systems heed only the rights of the folder.
void ClearReadOnly(const fs::path& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  constexpr DWORD kMark = FILE_ATTRIBUTE_READONLY;
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & kMark) == 0) return;
  SetFileAttributesW(path.c_str(), attributes & ~kMark);
}

// Of a file that is open elsewhere the system may say only that access is denied.
bool IsOpenElsewhere(const fs::path& path) {
  const HANDLE file = Open(path, DELETE);
  if (file == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_SHARING_VIOLATION;
  CloseHandle(file);
  return false;
}

// Repeats an operation on the file as long as a virus scanner may have it open.
template <typename Operation>
std::error_code Persist(const fs::path& path, const Operation& operation) {
  constexpr int kAttempts = 20;
  constexpr DWORD kPause = 100;
  DWORD reason = ERROR_SUCCESS;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (operation()) return {};
    reason = GetLastError();
    if (!IsHeldByAnother(static_cast<std::int32_t>(reason))) return ErrorOf(reason);
    ClearReadOnly(path);
    if (attempt > 0) Sleep(kPause);
  }
  return ErrorOf(IsOpenElsewhere(path) ? ERROR_SHARING_VIOLATION : reason);
}

bool Remove(const fs::path& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return IsMissing(GetLastError());
  const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return (isFolder ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str())) != FALSE;
}

}  // namespace

// By the manifest alone the system does so only where a policy allows it. It keeps its decision in
// the process environment block, where other languages' runtimes set it, too.
void AllowLongPaths() {
  constexpr std::size_t kBitField = 3;
  constexpr unsigned char kIsLongPathAware = 0x80;
  constexpr ULONG kFirstMajor = 10;
  constexpr ULONG kFirstBuild = 15063;
  const auto getVersion = SystemFunction<LONG(WINAPI*)(OSVERSIONINFOW*)>("RtlGetVersion");
  const auto getBlock = SystemFunction<unsigned char*(WINAPI*)()>("RtlGetCurrentPeb");
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  if (getVersion == nullptr || getBlock == nullptr || getVersion(&version) != 0) return;
  if (version.dwMajorVersion < kFirstMajor || version.dwBuildNumber < kFirstBuild) return;
  getBlock()[kBitField] |= kIsLongPathAware;
}

bool AreNamesUnicode() { return true; }

std::string TextOf(const fs::path& path) { return FromUtf16(WithSlashes(path), CP_UTF8); }

// std::filesystem is wrong about "C:a", too.
fs::path PathOf(std::string_view text) {
  const fs::path path = WithoutDevicePrefix(ToUtf16(text, CP_UTF8));
  return path.has_root_name() && !path.has_root_directory() ? AbsolutePath(path) : path;
}

fs::path PathOfListText(std::string_view text) { return ToUtf16(text); }

std::string ListTextOf(const fs::path& path) { return FromUtf16(WithSlashes(path)); }

std::string NameKey(const fs::path& path) {
  std::wstring key = WithSlashes(path);
  CharUpperBuffW(key.data(), static_cast<DWORD>(key.size()));
  return FromUtf16(key, CP_UTF8);
}

std::string ByteNameOf(const fs::path& path) {
  std::wstring form = path.native();
  std::string name = FromUtf16(form, CP_ACP);
  if (ToUtf16(name, CP_ACP) == form) return name;
  form.resize(GetShortPathNameW(path.c_str(), nullptr, 0));
  form.resize(GetShortPathNameW(path.c_str(), form.data(), static_cast<DWORD>(form.size())));
  name = FromUtf16(form, CP_ACP);
  return ToUtf16(name, CP_ACP) == form ? name : std::string();
}

fs::path AbsolutePath(const fs::path& path) {
  std::wstring text(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');
  const auto size = static_cast<DWORD>(text.size());
  text.resize(GetFullPathNameW(path.c_str(), size, text.data(), nullptr));
  return WithoutDevicePrefix(text);
}

// What doesn't exist is appended to the last folder that does.
fs::path CanonicalPath(const fs::path& path) {
  const fs::path absolute = AbsolutePath(path);
  const std::wstring end = FinalPath(absolute);
  if (!end.empty()) return end;
  const fs::path parent = absolute.parent_path();
  const bool exists = GetFileAttributesW(absolute.c_str()) != INVALID_FILE_ATTRIBUTES;
  return exists || parent == absolute ? absolute : CanonicalPath(parent) / absolute.filename();
}

fs::file_type EntryKind(const fs::path& path, std::error_code& error) {
  error.clear();
  WIN32_FIND_DATAW found{};
  found.dwFileAttributes = GetFileAttributesW(path.c_str());
  if (found.dwFileAttributes == INVALID_FILE_ATTRIBUTES) {
    if (IsMissing(GetLastError())) return fs::file_type::not_found;
    error = LastError();
    return fs::file_type::none;
  }
  // Only the folder tells what kind of link it is.
  if ((found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    FindClose(FindFirstFileW(path.c_str(), &found));
  }
  return KindOf(found);
}

fs::file_type EntryKind(const fs::path& path) {
  std::error_code ignored;
  return EntryKind(path, ignored);
}

// The C library's own listing ends without an error where a path is longer than 260 characters.
std::vector<FolderEntry> ListFolder(const fs::path& folder, std::error_code& error) {
  error.clear();
  std::vector<FolderEntry> entries;
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW((folder / L"*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) {
    error = LastError();
    return entries;
  }
  do {
    const std::wstring name = found.cFileName;
    if (!IsOfEveryFolder(name)) entries.push_back({folder / name, KindOf(found)});
  } while (FindNextFileW(search, &found));
  if (GetLastError() != ERROR_NO_MORE_FILES) error = LastError();
  FindClose(search);
  return entries;
}

void MoveEntry(const fs::path& from, const fs::path& to, std::error_code& error) {
  error = Persist(to, [&] {
    return MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE;
  });
}

void RemoveEntry(const fs::path& path, std::error_code& error) {
  error = Persist(path, [&] { return Remove(path); });
}

void RemoveEntries(const fs::path& path, std::error_code& error) {
  if (EntryKind(path, error) == fs::file_type::directory) {
    for (const FolderEntry& entry : ListFolder(path, error)) {
      if (!error) RemoveEntries(entry.path, error);
    }
  }
  if (!error) RemoveEntry(path, error);
}

void ClearStreamError() {
  errno = 0;
  _doserrno = 0;
}

// The C library has one number for several of the system's reasons.
std::error_code StreamError() {
  if (_doserrno != 0) return ErrorOf(_doserrno);
  return {errno == 0 ? EIO : errno, std::generic_category()};
}

std::string ErrorText(const std::error_code& error) {
  if (error.category() != std::system_category()) return error.message();
  constexpr DWORD kUsersLanguage = 0x400;
  wchar_t* text = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM,
      nullptr, static_cast<DWORD>(error.value()), kUsersLanguage, reinterpret_cast<wchar_t*>(&text),
      0, nullptr);
  if (length == 0) return FormatText("Unknown error %d", error.value());
  std::string result = FromUtf16({text, length}, CP_UTF8);
  LocalFree(text);
  result.erase(result.find_last_not_of(". \r\n") + 1);
  std::replace_if(
      result.begin(), result.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
  return result;
}

}  // namespace velmora::platform
