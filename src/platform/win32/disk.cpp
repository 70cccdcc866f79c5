#include "platform/disk.h"

#include <windows.h>

#include <algorithm>

#include "base/text.h"
#include "platform/win32/utf16.h"

namespace velmora::platform {

namespace fs = std::filesystem;

namespace {

fs::file_type KindOf(const WIN32_FIND_DATAW& found) {
  // Not every reparse point is a link: files that are kept in a cloud are none.
  const bool isLink = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
                      IsReparseTagNameSurrogate(found.dwReserved0);
  if (isLink) return fs::file_type::symlink;
  const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return isFolder ? fs::file_type::directory : fs::file_type::regular;
}

bool IsOfEveryFolder(const std::wstring& name) { return name == L"." || name == L".."; }

std::error_code LastError() { return {static_cast<int>(GetLastError()), std::system_category()}; }

}  // namespace

bool AreNamesUnicode() { return true; }

std::string TextOf(const fs::path& path) { return FromUtf16(path.generic_wstring(), CP_UTF8); }

fs::path PathOf(std::string_view text) { return ToUtf16(text, CP_UTF8); }

fs::path PathOfListText(std::string_view text) { return ToUtf16(text); }

std::string ListTextOf(const fs::path& path) { return FromUtf16(path.generic_wstring()); }

std::string NameKey(const fs::path& path) {
  std::wstring key = path.generic_wstring();
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
